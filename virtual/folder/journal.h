/**
 * The device's journal: one JSON object a line, each appended whole or not at all.
 */
#ifndef VIRTUAL_FOLDER_JOURNAL_H
#define VIRTUAL_FOLDER_JOURNAL_H

#include <filesystem>
#include <mutex>
#include <vector>

#include "virtual/folder/files.h"
#include "virtual/folder/json.h"

namespace vap {

class Journal {
  public:
    /** Opens `folder`/journal.jsonl for appending; throws std::runtime_error. A record
     *  that would make it longer than `most_bytes` begins a new file, and the old one
     *  becomes journal.jsonl.1 in place of the one before. */
    explicit Journal(const std::filesystem::path &folder, size_t most_bytes = 8 << 20);

    /** A line that cannot be written is left out; the first one with a sentence on
     *  standard error, which also tells when it goes on. */
    void append(const Json &line);

    /** All that is kept, oldest first; and none of it any more. */
    std::vector<Json> lines() const;
    void clear();

  private:
    bool write_whole(std::string_view text);
    void rotate();

    const std::filesystem::path file_;
    const std::filesystem::path former_;
    const size_t most_bytes_;
    mutable std::mutex mutex_;
    Descriptor fd_;
    bool torn_ = false; /**< what stands there ends within a line */
    int left_out_ = 0;  /**< lines since the last one that was written */
};

}  // namespace vap

#endif

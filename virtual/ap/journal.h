/**
 * The device's journal: one JSON object a line, appended with one write.
 */
#ifndef VIRTUAL_AP_JOURNAL_H
#define VIRTUAL_AP_JOURNAL_H

#include <filesystem>
#include <vector>

#include "virtual/ap/files.h"
#include "virtual/ap/vap.h"

namespace vap {

class Journal {
  public:
    /** Opens `folder`/journal.jsonl for appending; throws std::runtime_error. */
    explicit Journal(const std::filesystem::path &folder);

    void append(const Json &line);
    std::vector<Json> lines() const;
    void clear();

  private:
    std::filesystem::path file_;
    Descriptor fd_;
};

}  // namespace vap

#endif

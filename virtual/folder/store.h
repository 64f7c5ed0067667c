/**
 * A configuration file with one set of pending writes.
 */
#ifndef VIRTUAL_FOLDER_STORE_H
#define VIRTUAL_FOLDER_STORE_H

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "virtual/folder/files.h"
#include "virtual/folder/values.h"

namespace vap {

/** Looks whether others have changed a file, at most every 50 ms of real time. */
class Lookout {
  public:
    explicit Lookout(const std::filesystem::path &file) : file_(file) { look(); }

    /** True when it is time for a look. Two threads at the same moment may both be told. */
    bool due();

    /** True when the file is another than at the last look; without a look when none is
     *  due, unless it has to be `now`. The owner keeps threads apart. */
    bool sees_change(bool now);

    /** Takes the file for known as it is now. */
    void look() { stamp_ = file_stamp(file_); }

  private:
    const std::filesystem::path file_;
    std::atomic<uint32_t> last_ms_{0};
    FileStamp stamp_;
};

class Store {
  public:
    /** Opens the file; throws std::runtime_error with a sentence when it cannot
     *  be read or holds a malformed line. */
    explicit Store(std::filesystem::path file, Lasting lasting = Lasting::machine);

    /** Pending value, else the committed one. A pending value is dropped when somebody
     *  changes its key on disk: the newer one holds. */
    std::optional<std::string> get(std::string_view key);

    /** Adds to the pending set. False: key or value cannot be stored. */
    bool set(std::string_view key, std::string_view value);

    /** Merges the pending set into what stands on disk now. False: nothing was
     *  saved, the pending set stays. */
    bool commit();

    /** Commits one value at once, past the rest of the pending set. */
    bool set_now(std::string_view key, std::string_view value);

    /** Shows a value in place of the committed one for as long as this process
     *  runs, without ever saving it. */
    void show(std::string_view key, std::string_view value);

    /** What stands on disk now; nothing when it is broken. */
    std::optional<Values> committed();

    /** Replaces the whole file and drops the pending set. */
    bool replace(const Values &values);

  private:
    void refresh(bool now);
    bool merge(const Values &changes);
    bool save(Values values);

    const std::filesystem::path file_;
    const Lasting lasting_;
    std::mutex mutex_;
    Lookout lookout_;
    bool broken_ = false; /**< what stands on disk is malformed */
    Values committed_;
    Values pending_;
    Values shown_;
};

}  // namespace vap

#endif

/**
 * hardware.json in memory.
 */
#ifndef VIRTUAL_FOLDER_HARDWARE_H
#define VIRTUAL_FOLDER_HARDWARE_H

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>

#include "virtual/folder/files.h"
#include "virtual/folder/json.h"
#include "virtual/folder/store.h"

namespace vap {

class Hardware {
  public:
    /** Throws std::runtime_error with a sentence when the file is unusable. */
    explicit Hardware(std::filesystem::path file, Lasting lasting = Lasting::machine);

    /** Value at a JSON pointer, null when absent. */
    Json at(const std::string &pointer);
    Json whole();
    uint32_t generation(); /**< changes with the document */

    /** Merge patch, saved at once; throws std::runtime_error. */
    void patch(const Json &change);

  private:
    void refresh(bool now);

    const std::filesystem::path file_;
    const Lasting lasting_;
    std::mutex mutex_;
    Lookout lookout_;
    Json document_;
    bool broken_ = false;
    std::atomic<uint32_t> generation_{1};
};

}  // namespace vap

#endif

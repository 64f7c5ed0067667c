/**
 * Locks of a device folder, which other processes respect, too.
 */
#ifndef VIRTUAL_FOLDER_LOCK_H
#define VIRTUAL_FOLDER_LOCK_H

#include <chrono>
#include <filesystem>

#include "virtual/folder/files.h"

namespace vap {

/** Holds a folder's lock file: whoever replaces a file of the folder from what
 *  stands there does it under this lock. */
class FolderLock {
  public:
    /** Waits until the lock is free, at most `patience`; then a line on standard
     *  error says who holds it. */
    explicit FolderLock(const std::filesystem::path &folder,
                        std::chrono::milliseconds patience = std::chrono::seconds(5));
    bool held() const { return fd_.get() >= 0; }

  private:
    Descriptor fd_;
};

/** Keeps a device from being run twice at a time: held by the agent's process, and by
 *  the one that starts the agent again and again, which passes it on. */
class RunLock {
  public:
    /** Takes the lock, or goes on with the one that was passed on to this process.
     *  Throws std::runtime_error with a sentence when the device runs already. */
    explicit RunLock(const std::filesystem::path &folder);

    /** Lets the program that the calling process becomes go on with the lock; between
     *  `fork` and `exec`. */
    void pass_on() const;

  private:
    Descriptor fd_;
};

}  // namespace vap

#endif

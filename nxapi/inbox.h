/**
 * The commands that wait for the main thread.
 */
#ifndef NXAPI_INBOX_H
#define NXAPI_INBOX_H

#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

#include "nxapi/command.h"
#include "nxapi/event.h"

namespace nxapi {

class Inbox {
  public:
    /** What waits at most: commands, and bytes of all their texts. A main thread that
     *  is busy for minutes must not cost memory without end. */
    static constexpr size_t most_commands = 256;
    static constexpr size_t most_bytes = 4 << 20;

    /** Readable from `announce` until the commands are taken; -1 when there is no
     *  descriptor. */
    int fd() const { return event_.fd(); }

    /** Whether a command of so many bytes may wait as well. What is true for the one
     *  who puts commands stays true until the next `put`. */
    bool has_room(size_t bytes) {
        const std::lock_guard guard(lock_);
        return commands_.size() < most_commands && bytes <= most_bytes - bytes_;
    }

    /** Takes a command that there is room for. */
    void put(Command command) {
        const std::lock_guard guard(lock_);
        bytes_ += command.bytes();
        commands_.push_back(std::move(command));
    }

    /** Calls the main thread when commands wait. It may run at once, so the caller
     *  holds no lock that it would wait for. */
    void announce() {
        if (is_to_announce()) {
            event_.signal();
        }
    }

    /** Exchanges what waits for the empty `commands`. */
    void take(std::vector<Command> &commands) {
        const std::lock_guard guard(lock_);
        if (std::exchange(announced_, false)) {
            event_.clear();
        }
        bytes_ = 0;
        commands_.swap(commands);
    }

  private:
    bool is_to_announce() {
        const std::lock_guard guard(lock_);
        return !commands_.empty() && !std::exchange(announced_, true);
    }

    std::mutex lock_;
    std::vector<Command> commands_;
    size_t bytes_ = 0;
    bool announced_ = false;
    Event event_;
};

}  // namespace nxapi

#endif

/**
 * The commands that wait for the main thread.
 */
#ifndef VIRTUAL_NXAPI_INBOX_H
#define VIRTUAL_NXAPI_INBOX_H

#include <cstddef>
#include <mutex>
#include <utility>
#include <vector>

#include "virtual/nxapi/command.h"
#include "virtual/nxapi/event.h"

namespace nxapi {

class Inbox {
  public:
    /** What waits at most: commands, and bytes of their requests. A main thread that
     *  is busy for minutes must not cost memory without end. */
    static constexpr size_t most_commands = 256;
    static constexpr size_t most_bytes = 4 << 20;

    /** Readable from `announce` until the commands are taken; -1 when there is no
     *  descriptor. */
    int fd() const { return event_.fd(); }

    /** False when no more may wait; the command is then left alone. */
    bool put(Command &command) {
        const std::lock_guard guard(lock_);
        const size_t bytes = bytes_ + command.request.size();
        if (commands_.size() >= most_commands || bytes > most_bytes) {
            return false;
        }
        commands_.push_back(std::move(command));
        bytes_ = bytes;
        return true;
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
        event_.clear();
        announced_ = false;
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

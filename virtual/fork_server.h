/**
 * Many devices from one loaded agent: a process of the agent's program that stops in
 * front of `main`, with all of its libraries loaded and bound, and forks one child for
 * each device on order. A child then runs the unchanged agent.
 *
 * The process waits so when `fork_server_variable` names a descriptor, one end of a
 * SOCK_SEQPACKET pair; a message is a ForkOrder to it or a ForkReport from it. It alone
 * waits for its children. When the other end is closed, it ends all of them with their
 * process groups.
 */
#ifndef VIRTUAL_FORK_SERVER_H
#define VIRTUAL_FORK_SERVER_H

#include <climits>
#include <cstddef>
#include <cstdint>

namespace vap {

/** Environment variable with the descriptor's number. What else stands in the server's
 *  environment (VAP_SPEED, VAP_TRACE) holds for each of its devices. */
inline constexpr const char *fork_server_variable = "VAP_FORK_SERVER";

/** Most devices of one server; their tags are below it. */
inline constexpr uint32_t most_forks = 1 << 16;

/** One message to the server. */
struct ForkOrder {
    uint32_t tag = 0;   /**< the caller's number for the device */
    int32_t signal = 0; /**< 0: start the device; others: signal its process group */
    /** Of a start: the device folder, NUL, the file that the agent's standard output and
     *  error are appended to, NUL. */
    char paths[2 * PATH_MAX] = {};

    static constexpr size_t head = 2 * sizeof(uint32_t);
};

/** One message from the server: a start (`pid` is -1 and `status` an errno when there is
 *  none), or an end with its status as `waitpid` tells it. A device that runs already is
 *  not started again: EBUSY. */
struct ForkReport {
    enum Kind : uint32_t { started, ended };
    Kind kind = started;
    uint32_t tag = 0;
    int32_t pid = -1;
    int32_t status = 0;
};

}  // namespace vap

#endif

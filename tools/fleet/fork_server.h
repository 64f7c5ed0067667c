/**
 * The process that forks the agents of a fleet.
 */
#ifndef TOOLS_FLEET_FORK_SERVER_H
#define TOOLS_FLEET_FORK_SERVER_H

#include <sys/types.h>

#include <filesystem>
#include <vector>

#include "virtual/folder/files.h"
#include "virtual/fork_server.h"

namespace fleet {

/** One thread. All devices end with it, also when its process is killed. */
class ForkServer {
  public:
    /** Loads the agent's program; `speed` and `trace` hold for all of its devices.
     *  Throws tools::Failure. */
    ForkServer(const std::filesystem::path &agent, double speed, bool trace);
    ~ForkServer();
    ForkServer(const ForkServer &) = delete;
    ForkServer &operator=(const ForkServer &) = delete;

    /** Orders a device to be started; a report of the same tag tells what came of it. */
    void start(uint32_t tag, const std::filesystem::path &folder, const std::filesystem::path &log);

    /** Signals a device with all that it runs, if it runs. */
    void signal(uint32_t tag, int signal);

    /** Readable when there are reports. */
    int fd() const { return socket_.get(); }

    /** What has come so far. Throws tools::Failure when the server has ended. */
    std::vector<vap::ForkReport> reports();

  private:
    void send(const vap::ForkOrder &order, size_t size);

    vap::Descriptor socket_;
    pid_t pid_ = -1;
};

}  // namespace fleet

#endif

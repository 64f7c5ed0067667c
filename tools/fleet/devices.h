/**
 * The devices of a run: which are to run, which do, and which the cloud knows.
 */
#ifndef TOOLS_FLEET_DEVICES_H
#define TOOLS_FLEET_DEVICES_H

#include <chrono>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/fleet/figures.h"
#include "tools/fleet/folders.h"
#include "tools/fleet/fork_server.h"
#include "tools/fleet/observer.h"

namespace fleet {

using Clock = std::chrono::steady_clock;

/** One device. Its agent is kept like a device's process monitor keeps it: started again
 *  at once when the device restarts, after a growing pause when it ended otherwise. */
struct Device {
    std::string serial;
    bool here = false;     /**< of this slice */
    bool wanted = false;   /**< is to run */
    bool queued = false;   /**< waits for its start */
    bool starting = false; /**< counts against the pace of starts */
    bool ending = false;   /**< was ended, its end is not yet told */
    bool online = false;
    bool hopeless = false; /**< cannot start */
    bool alive = false;    /**< was started, and its end is not yet told */
    pid_t pid = 0;         /**< 0: does not run, or is not yet told to */
    double started = 0;    /**< when, seconds since 1970: older news is another life's */
    Clock::time_point launched;
    double since = 0; /**< its newest connection, as the cloud knows it */
    unsigned connection = 0;
    size_t broker = 0;
    int awaited_by = -1;       /**< step that waits for it to be back */
    bool awaited_back = false; /**< it was there before */
    Clock::time_point awaited_from;
    std::chrono::milliseconds pause{250};
};

class Devices {
  public:
    Devices(const Plan &plan, const Slice &slice, const Folders &folders, ForkServer &server,
            Figures &figures);

    /** What steps do. `step` waits for the device until it is back. */
    void start(uint32_t index, uint32_t step);
    void stop(uint32_t index);
    void cut(uint32_t index);

    /** The devices of a broker are gone, though nobody tells. */
    void lose_broker(size_t broker, uint32_t step);

    /** A frozen broker goes on: who has not left it meanwhile is still there. */
    void regain_broker(size_t broker);

    /** Hears what the server has to tell, starts what is due, in as many at a time as the
     *  machine bears. */
    void work();

    void take_status(const std::string &serial, const Listener::Status &status);

    /** A device of this slice, by its serial number; -1: none. */
    int find(const std::string &serial) const;

    const std::vector<Device> &all() const { return devices_; }

    /** All that are to run are online, but those that cannot start. */
    bool complete() const { return online_ + hopeless_ >= wanted_; }

    size_t wanted() const { return wanted_; }
    size_t online() const { return online_; }
    size_t running() const { return running_; }
    size_t starting() const { return queue_.size() + starting_; }

    /** Processes of the devices that run, or of some of them evenly. */
    std::vector<pid_t> processes(size_t most) const;

    /** Ends all of them in order. */
    void end_all();

    /** Counts what is still missing now; call it once, before they are ended. */
    void count_lost();

    /** What has gone wrong last, for people. */
    const std::deque<std::string> &troubles() const { return troubles_; }

  private:
    void end(uint32_t index, int signal);
    void await(Device &device, uint32_t step, bool back);
    void enqueue(uint32_t index);
    void launch();
    void report_start(Device &device, const vap::ForkReport &report);
    void report_end(uint32_t index, int status);
    void ended_by_itself(uint32_t index, int status);
    void set_online(Device &device, bool online);
    void note(const std::string &trouble);

    const Folders &folders_;
    ForkServer &server_;
    Figures &figures_;
    std::vector<Device> devices_;
    std::unordered_map<std::string, uint32_t> by_serial_;
    std::deque<uint32_t> queue_;    /**< to be started */
    std::deque<uint32_t> launches_; /**< started, in their order */
    std::multimap<Clock::time_point, uint32_t> pauses_;
    std::deque<std::string> troubles_;
    size_t starting_ = 0, running_ = 0, wanted_ = 0, online_ = 0, hopeless_ = 0;
};

}  // namespace fleet

#endif

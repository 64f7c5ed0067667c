#include "tools/fleet/devices.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "virtual/device/device.h"

namespace fleet {
namespace {

using namespace std::chrono_literals;

/** Devices that start at a time: enough to keep two cores busy, few enough for each to be
 *  there in time. */
constexpr size_t most_starting = 64;
/** One that is not there by then no longer counts among them. */
constexpr auto long_start = 5s;

constexpr std::chrono::milliseconds first_pause = 250ms;
constexpr std::chrono::milliseconds longest_pause = 60s;
constexpr auto healthy_life = 60s;
constexpr auto patience = 5s; /**< with an agent that was told to end */

constexpr size_t most_troubles = 3;

/** Status of an agent that cannot start, and will not the next time. */
constexpr int start_failed = 255;

double now_since_1970() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

double seconds_since(Clock::time_point then) {
    return std::chrono::duration<double>(Clock::now() - then).count();
}

std::string end_text(int status) {
    return WIFSIGNALED(status) ? std::string("was ended by signal ") + strsignal(WTERMSIG(status))
                               : "ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Devices::Devices(const Plan &plan, const Slice &slice, const Folders &folders, ForkServer &server,
                 Figures &figures)
    : folders_(folders), server_(server), figures_(figures) {
    for (const Planned &planned : plan.devices) {
        const auto index = static_cast<uint32_t>(devices_.size());
        Device &device = devices_.emplace_back();
        device.serial = planned.serial;
        device.here = slice.holds(index);
        if (device.here) {
            by_serial_.emplace(planned.serial, index);
        }
    }
    figures_.devices = by_serial_.size();
}

void Devices::await(Device &device, uint32_t step, bool back) {
    StepFigures &figures = figures_.steps[step];
    if (device.awaited_by != static_cast<int>(step)) {
        ++figures.awaited;
    }
    device.awaited_by = static_cast<int>(step);
    device.awaited_back = back;
    device.awaited_from = Clock::now();
}

void Devices::start(uint32_t index, uint32_t step) {
    Device &device = devices_[index];
    if (device.wanted) {
        return;
    }
    device.wanted = true;
    ++wanted_;
    await(device, step, device.launched != Clock::time_point());
    if (!device.alive) {
        enqueue(index);
    }
}

void Devices::stop(uint32_t index) {
    end(index, SIGTERM);
}

void Devices::cut(uint32_t index) {
    end(index, SIGKILL);
}

void Devices::end(uint32_t index, int signal) {
    Device &device = devices_[index];
    if (device.wanted) {
        device.wanted = false;
        --wanted_;
        hopeless_ -= device.hopeless ? 1 : 0;
        device.hopeless = false;
        set_online(device, false);
    }
    if (device.alive) {
        device.ending = true;
        server_.signal(index, signal);
    }
}

void Devices::lose_broker(size_t broker, uint32_t step) {
    for (Device &device : devices_) {
        if (device.online && device.broker == broker) {
            set_online(device, false);
            await(device, step, true);
        }
    }
}

void Devices::regain_broker(size_t broker) {
    for (Device &device : devices_) {
        if (device.wanted && device.alive && device.since > 0 && device.broker == broker) {
            set_online(device, true);
        }
    }
}

void Devices::enqueue(uint32_t index) {
    Device &device = devices_[index];
    if (!device.queued) {
        device.queued = true;
        queue_.push_back(index);
    }
}

void Devices::launch() {
    while (!pauses_.empty() && pauses_.begin()->first <= Clock::now()) {
        const uint32_t index = pauses_.begin()->second;
        pauses_.erase(pauses_.begin());
        enqueue(index);
    }
    while (!launches_.empty()) {
        Device &first = devices_[launches_.front()];
        if (first.starting && Clock::now() < first.launched + long_start) {
            break;
        }
        starting_ -= first.starting ? 1 : 0;
        first.starting = false;
        launches_.pop_front();
    }
    while (!queue_.empty() && starting_ < most_starting) {
        const uint32_t index = queue_.front();
        queue_.pop_front();
        Device &device = devices_[index];
        device.queued = false;
        if (!device.wanted || device.alive) {
            continue;
        }
        device.launched = Clock::now();
        device.started = now_since_1970();
        device.since = 0;
        device.alive = true;
        ++running_;
        starting_ += device.starting ? 0 : 1;
        device.starting = true;
        launches_.push_back(index);
        server_.start(index, folders_.of(device.serial), folders_.log_of(device.serial));
    }
}

void Devices::work() {
    for (const vap::ForkReport &report : server_.reports()) {
        if (report.kind == vap::ForkReport::started) {
            report_start(devices_[report.tag], report);
        } else {
            report_end(report.tag, report.status);
        }
    }
    launch();
}

void Devices::report_start(Device &device, const vap::ForkReport &report) {
    if (report.pid > 0) {
        device.pid = report.pid;
        return;
    }
    device.alive = false;
    device.ending = false;
    --running_;
    note(device.serial + ": no process (" + strerror(report.status) + ")");
    pauses_.emplace(Clock::now() + device.pause, report.tag);
    device.pause = std::min(2 * device.pause, longest_pause);
}

void Devices::report_end(uint32_t index, int status) {
    Device &device = devices_[index];
    const bool expected = device.ending;
    device.pid = 0;
    device.alive = false;
    device.ending = false;
    --running_;
    starting_ -= device.starting ? 1 : 0;
    device.starting = false;
    set_online(device, false);
    if (expected && device.wanted) {
        enqueue(index);
    } else if (!expected) {
        ended_by_itself(index, status);
    }
}

void Devices::ended_by_itself(uint32_t index, int status) {
    Device &device = devices_[index];
    if (device.awaited_by < 0) {
        device.awaited_back = true;
        device.awaited_from = Clock::now();
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == vap::exit_restart) {
        ++figures_.restarts;
        enqueue(index);
        return;
    }
    figures_.ended.push_back({device.serial, end_text(status), folders_.last_line(device.serial)});
    note(device.serial + " " + end_text(status));
    if (WIFEXITED(status) && WEXITSTATUS(status) == start_failed) {
        device.hopeless = true;
        ++hopeless_;
        return;
    }
    if (Clock::now() - device.launched >= healthy_life) {
        device.pause = first_pause;
    }
    pauses_.emplace(Clock::now() + device.pause, index);
    device.pause = std::min(2 * device.pause, longest_pause);
}

void Devices::set_online(Device &device, bool online) {
    if (device.online == online) {
        return;
    }
    device.online = online;
    online_ += online ? 1 : -1;
    if (!online) {
        return;
    }
    ++figures_.registrations;
    starting_ -= device.starting ? 1 : 0;
    device.starting = false;
    if (device.awaited_from == Clock::time_point()) {
        return;
    }
    const double took = seconds_since(device.awaited_from);
    double &longest = device.awaited_back ? figures_.back_within : figures_.registered_within;
    longest = std::max(longest, took);
    if (device.awaited_by >= 0) {
        StepFigures &step = figures_.steps[static_cast<size_t>(device.awaited_by)];
        ++step.back;
        step.to_full = std::max(step.to_full, took);
    }
    device.awaited_by = -1;
    device.awaited_from = {};
}

void Devices::take_status(const std::string &serial, const Listener::Status &status) {
    const int index = find(serial);
    if (index < 0) {
        return;
    }
    Device &device = devices_[static_cast<size_t>(index)];
    constexpr double rounding = 0.01;  // of "since", which has three digits
    if (!device.wanted || !device.alive || status.since < device.started - rounding ||
        std::pair(status.since, status.connection) < std::pair(device.since, device.connection)) {
        return;
    }
    device.since = status.since;
    device.connection = status.connection;
    device.broker = status.broker;
    if (device.awaited_by < 0 && !status.online && device.online) {
        device.awaited_back = true;
        device.awaited_from = Clock::now();
    }
    set_online(device, status.online);
}

int Devices::find(const std::string &serial) const {
    const auto known = by_serial_.find(serial);
    return known == by_serial_.end() ? -1 : static_cast<int>(known->second);
}

std::vector<pid_t> Devices::processes(size_t most) const {
    std::vector<pid_t> found;
    for (const Device &device : devices_) {
        if (device.pid > 0) {
            found.push_back(device.pid);
        }
    }
    const size_t step = std::max<size_t>(1, (found.size() + most - 1) / std::max<size_t>(most, 1));
    std::vector<pid_t> some;
    for (size_t i = 0; i < found.size(); i += step) {
        some.push_back(found[i]);
    }
    return some;
}

void Devices::end_all() {
    queue_.clear();
    pauses_.clear();
    const auto limit = Clock::now() + patience;
    for (uint32_t i = 0; i < devices_.size(); ++i) {
        stop(i);
    }
    bool forced = false;
    while (running_ > 0) {
        if (!forced && Clock::now() >= limit) {
            forced = true;
            for (uint32_t i = 0; i < devices_.size(); ++i) {
                cut(i);
            }
        }
        pollfd server{server_.fd(), POLLIN, 0};
        poll(&server, 1, 100);
        work();
    }
}

void Devices::count_lost() {
    std::set<std::string> lost;
    for (const EndFigures &end : figures_.ended) {
        lost.insert(end.serial);
    }
    for (const Device &device : devices_) {
        if (device.wanted && !device.online) {
            figures_.not_back.push_back(device.serial);
            lost.insert(device.serial);
        }
    }
    figures_.lost = lost.size();
    figures_.online = online_;
}

void Devices::note(const std::string &trouble) {
    troubles_.push_back(trouble);
    if (troubles_.size() > most_troubles) {
        troubles_.pop_front();
    }
}

}  // namespace fleet

#include "tools/fleet/run.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>

#include "tools/fleet/calls.h"
#include "tools/fleet/devices.h"
#include "tools/fleet/display.h"
#include "tools/fleet/limits.h"
#include "tools/fleet/usage.h"
#include "tools/processes.h"
#include "tools/temp_folder.h"
#include "tools/text.h"

namespace fleet {
namespace {

using namespace std::chrono_literals;

/** Longest wait for devices to come back and for answers behind the scenario's end. */
constexpr auto settling = 60s;
/** Longest time of a round that is not spent on what others have to tell. */
constexpr auto round_time = 20ms;
constexpr auto look_every = 2s; /**< at memory and processor */
constexpr size_t most_watched = 48;
constexpr size_t most_counted = 256; /**< for the figures of the end */

constexpr const char *broker_settings =
    "listener PORT 127.0.0.1\nallow_anonymous true\nmax_queued_messages 0\n";

std::string machine_text() {
    utsname system{};
    uname(&system);
    const double gib = static_cast<double>(sysconf(_SC_PHYS_PAGES)) *
                       static_cast<double>(sysconf(_SC_PAGE_SIZE)) / (1 << 30);
    char text[160];
    snprintf(text, sizeof text, "%ld cores, %.0f GiB, %s %s", sysconf(_SC_NPROCESSORS_ONLN), gib,
             system.sysname, system.release);
    return text;
}

std::string joined(const std::vector<std::string> &words) {
    std::string all;
    for (const std::string &word : words) {
        all += (all.empty() ? "" : ",") + word;
    }
    return all;
}

vap::Descriptor block_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&set, signal);
    }
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return vap::Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
}

Figures blank_figures(const Scenario &scenario, const Plan &plan, const Slice &slice) {
    Figures figures;
    figures.scenario = scenario.name;
    figures.seed = scenario.seed;
    figures.speed = scenario.speed;
    figures.slice = std::to_string(slice.part) + "/" + std::to_string(slice.of);
    figures.machines = {machine_text()};
    for (const Step &step : scenario.steps) {
        figures.steps.push_back({.name = step.name, .planned_at = step.at / scenario.speed});
    }
    for (const Action &action : plan.actions) {
        ++figures.steps[action.step].planned;
    }
    return figures;
}

/** Its parts end in the opposite order: the devices before their brokers and folders. */
class Run : Listener {
  public:
    Run(const Scenario &scenario, const RunOptions &options)
        : scenario_(scenario),
          options_(options),
          plan_(make_plan(scenario, options.slice)),
          figures_(blank_figures(scenario, plan_, options.slice)),
          folders_(folder()),
          calls_(scenario, figures_) {
        check_machine();
        signals_ = block_signals();
        for (int i = 0; i < own_brokers(); ++i) {
            brokers_.push_back(std::make_unique<tools::Broker>(broker_settings));
            urls_.push_back(brokers_.back()->url());
        }
        prepare_folders();
        server_.emplace(options.agent, scenario.speed, options.trace);
        devices_.emplace(plan_, options.slice, folders_, *server_, figures_);
        observer_.emplace(urls_, static_cast<Listener &>(*this));  // which hears at once
    }

    Report go() {
        {
            Display display(figures_);
            display_ = &display;
            begin_ = Clock::now();
            while (!interrupted_ && !is_over()) {
                round();
            }
            figures_.seconds = real_seconds();
            look_at_end();
            display_ = nullptr;
        }
        const bool judged = !interrupted_ || options_.endless;
        figures_.interrupted = !judged;
        devices_->count_lost();
        for (const auto &[device, count] : calls_.missing()) {
            figures_.missing[plan_.devices[device].serial] = count;
        }
        devices_->end_all();
        count_settings();
        return {figures_, judge(scenario_.goals, figures_)};
    }

  private:
    int own_brokers() const { return options_.brokers.empty() ? scenario_.brokers : 0; }

    std::filesystem::path folder() {
        if (!options_.folder.empty()) {
            return std::filesystem::absolute(options_.folder);
        }
        temporary_.emplace();
        return temporary_->path();
    }

    void check_machine() {
        Needs needs{0, static_cast<size_t>(own_brokers()), folders_.of(""), 0};
        for (uint32_t i = 0; i < plan_.devices.size(); ++i) {
            if (options_.slice.holds(i)) {
                ++needs.devices;
                needs.new_devices +=
                    std::filesystem::exists(folders_.of(plan_.devices[i].serial)) ? 0U : 1U;
            }
        }
        if (const auto lacks = shortages(limits(needs)); !lacks.empty()) {
            throw tools::Failure("this machine does not bear the fleet\n" + [&] {
                std::string text;
                for (const std::string &lack : lacks) {
                    text += (text.empty() ? "" : "\n") + lack;
                }
                return text;
            }());
        }
        raise_descriptors(needs);
    }

    void prepare_folders() {
        if (!options_.brokers.empty()) {
            urls_ = options_.brokers;
        }
        for (uint32_t i = 0; i < plan_.devices.size(); ++i) {
            if (options_.slice.holds(i)) {
                const Planned &device = plan_.devices[i];
                folders_.prepare(device, scenario_.groups[device.group], joined(urls_));
            }
        }
    }

    double real_seconds() const {
        return std::chrono::duration<double>(Clock::now() - begin_).count();
    }
    double device_seconds() const { return real_seconds() * scenario_.speed; }

    /** Behind the scenario's time all devices come back, and answers, or it takes too long. */
    bool is_over() {
        const bool acted = next_ >= plan_.actions.size() && device_seconds() >= scenario_.lasts;
        if (options_.endless || !acted) {
            return false;
        }
        if (settling_until_ == Clock::time_point()) {
            settling_until_ = Clock::now() + settling;
        }
        return (devices_->complete() && !calls_.waits()) || Clock::now() >= settling_until_;
    }

    void round() {
        wait();
        devices_->work();
        calls_.expire();
        act();
        const auto now = Clock::now();
        if (now >= next_look_) {
            look();
            next_look_ = now + look_every;
        }
        if (!idles_ && next_ == plan_.actions.size() && devices_->complete()) {
            idles_ = true;
            idle_.look(devices_->processes(most_counted));
        }
        count_registrations();
        if (display_->due()) {
            display_->show(standing());
        }
    }

    void wait() {
        std::vector<pollfd> ready = observer_->wanted();
        const size_t links = ready.size();
        ready.push_back({server_->fd(), POLLIN, 0});
        ready.push_back({signals_.get(), POLLIN, 0});
        double left = 0.1;
        if (next_ < plan_.actions.size()) {
            left = (plan_.actions[next_].at - device_seconds()) / scenario_.speed;
        }
        const auto wait_ms = static_cast<int>(std::clamp(left, 0.0, 0.1) * 1e3);
        poll(ready.data(), ready.size(), wait_ms);
        interrupted_ = ready[links + 1].revents != 0;
        ready.resize(links);
        observer_->take(ready);
    }

    void act() {
        const auto limit = Clock::now() + round_time;
        while (next_ < plan_.actions.size() && Clock::now() < limit &&
               plan_.actions[next_].at <= device_seconds()) {
            const Action &action = plan_.actions[next_++];
            StepFigures &figures = figures_.steps[action.step];
            if (figures.began_at < 0) {
                figures.began_at = real_seconds();
                step_ = action.step;
                display_->begin_step(standing());
            }
            do_action(action);
            ++figures.done;
        }
    }

    void do_action(const Action &action) {
        const Step &step = scenario_.steps[action.step];
        const std::string &serial = plan_.devices[action.device].serial;
        switch (action.deed) {
            case Deed::start:
                return devices_->start(action.device, action.step);
            case Deed::stop:
                return devices_->stop(action.device);
            case Deed::cut:
                return devices_->cut(action.device);
            case Deed::call:
                return call(action.device, step);
            case Deed::set:
                return set(action.device, step);
            case Deed::leave:
                return folders_.leave(serial, action.station);
            case Deed::join:
                figures_.roams += step.verb == Verb::roam ? 1 : 0;
                return folders_.join(serial, action.station);
            case Deed::broker:
                return do_broker(step, action.step);
        }
    }

    void call(uint32_t index, const Step &step) {
        const Device &device = devices_->all()[index];
        if (device.online && observer_->call(calls_.next(), device.broker, device.serial,
                                             step.target, step.request)) {
            calls_.sent(step, index);
        } else {
            calls_.away(step);
        }
    }

    void set(uint32_t index, const Step &step) {
        folders_.change(plan_.devices[index].serial, step);
        if (!step.config.is_null()) {
            settings_[index].merge_patch(step.config);
        }
    }

    void do_broker(const Step &step, uint32_t index) {
        tools::Broker &broker = *brokers_[step.broker];
        bool &frozen = frozen_[step.broker];
        bool &stopped = stopped_[step.broker];
        const bool starts = step.act == BrokerAct::start;
        if (starts == !(frozen || stopped)) {
            return;
        }
        observer_->heed(step.broker, starts);
        if (step.act == BrokerAct::stop) {
            stopped = true;
            broker.stop(SIGKILL);
        } else if (step.act == BrokerAct::freeze) {
            frozen = true;
            broker.signal(SIGSTOP);
        } else if (stopped) {
            broker.start();
        } else {
            broker.signal(SIGCONT);
            devices_->regain_broker(step.broker);
        }
        if (starts) {
            frozen = stopped = false;
        } else {
            devices_->lose_broker(step.broker, index);
        }
    }

    /* ---- what is heard -------------------------------------------------- */

    void on_status(const std::string &serial, const Status &status) override {
        devices_->take_status(serial, status);
    }

    void on_upload(const std::string &serial, const std::string &kind) override {
        if (devices_->find(serial) >= 0) {
            ++figures_.uploads[kind];
        }
    }

    void on_answer(size_t number, const nxctl::Received &answer) override {
        const size_t code = answer.payload.find("\"resp_code\":");
        const char *const text =
            code == answer.payload.npos ? "-1" : answer.payload.c_str() + code + 12;
        calls_.answered(number, answer.result == 0 && atoi(text) == 0);
    }

    /* ---- what is measured ------------------------------------------------ */

    void look() {
        const std::vector<pid_t> some = devices_->processes(most_watched);
        const auto devices = static_cast<double>(devices_->running());
        const double memory = median_memory(some);
        figures_.memory_of_one_kib = std::max(figures_.memory_of_one_kib, memory);
        figures_.memory_kib = std::max(figures_.memory_kib, memory * devices);
        const Usage::Figures usage = usage_.look(some);
        processor_ = usage.processor_of_one * devices * 100;
        figures_.processor_peak = std::max(figures_.processor_peak, processor_);
    }

    /** Between the moment when all was done and all devices were there, and the end. */
    void look_at_end() {
        look();
        const Usage::Figures idle = idle_.look(devices_->processes(most_counted));
        if (idle.processes > 0 && idle.seconds >= 1) {
            figures_.wakeups_of_one = idle.wakeups_of_one;
            figures_.processor_percent =
                idle.processor_of_one * static_cast<double>(devices_->running()) * 100;
        }
    }

    void count_registrations() {
        const double passed = std::chrono::duration<double>(Clock::now() - second_).count();
        if (passed >= 1) {
            figures_.registrations_peak =
                std::max(figures_.registrations_peak,
                         static_cast<double>(figures_.registrations - registrations_) / passed);
            registrations_ = figures_.registrations;
            second_ = Clock::now();
        }
    }

    void count_settings() {
        for (const auto &[device, config] : settings_) {
            figures_.settings_lost += folders_.missing(plan_.devices[device].serial, config);
        }
    }

    Standing standing() const {
        Standing now;
        now.step = std::to_string(step_ + 1) + " of " + std::to_string(scenario_.steps.size()) +
                   ": " + tools::shown(scenario_.steps[step_].name);
        now.seconds = real_seconds();
        now.of_seconds = options_.endless ? 0 : scenario_.lasts / scenario_.speed;
        now.devices = static_cast<size_t>(figures_.devices);
        now.online = devices_->online();
        now.wanted = devices_->wanted();
        now.starting = devices_->starting();
        now.processor_percent = processor_;
        now.troubles.assign(devices_->troubles().begin(), devices_->troubles().end());
        if (!observer_->trouble().empty()) {
            now.troubles.push_back(observer_->trouble());
        }
        return now;
    }

    const Scenario &scenario_;
    const RunOptions &options_;
    const Plan plan_;
    Figures figures_;
    std::optional<tools::TempFolder> temporary_;
    Folders folders_;
    Calls calls_;
    vap::Descriptor signals_;
    std::vector<std::unique_ptr<tools::Broker>> brokers_;
    std::map<size_t, bool> frozen_, stopped_;
    std::vector<std::string> urls_;
    std::optional<ForkServer> server_;
    std::optional<Observer> observer_;
    std::optional<Devices> devices_;
    std::map<uint32_t, Json> settings_; /**< that must stand at the end, by device */
    Display *display_ = nullptr;
    Usage usage_, idle_;
    double processor_ = 0;
    Clock::time_point begin_, next_look_, second_ = Clock::now(), settling_until_;
    uint64_t registrations_ = 0; /**< at `second_` */
    size_t next_ = 0;            /**< action */
    uint32_t step_ = 0;
    bool idles_ = false; /**< all is done, all are there */
    bool interrupted_ = false;
};

}  // namespace

Report run(const Scenario &scenario, const RunOptions &options) {
    return Run(scenario, options).go();
}

}  // namespace fleet

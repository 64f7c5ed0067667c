/* Many devices on one broker, forked from one loaded agent, beside as many echoes. */
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/support/cloud.h"
#include "bench/support/table.h"
#include "paths.h"
#include "tools/fleet/fork_server.h"
#include "tools/fleet/limits.h"
#include "tools/fleet/usage.h"

namespace {

using bench::Kind;
using bench::Subject;
using Subjects = std::vector<std::unique_ptr<Subject>>;

/** After this long the threads of the agents' start-up have ended. */
constexpr std::chrono::seconds start_up{30};
constexpr std::chrono::seconds idle_time{15};

/** The processes of a fleet, which end with it. */
struct Processes {
    virtual ~Processes() = default;
    virtual void start() = 0;
    virtual void cut_power() = 0;
    virtual std::vector<pid_t> pids() = 0; /**< of those that run */
};

class Echoes : public Processes {
  public:
    explicit Echoes(const Subjects &subjects) : subjects_(subjects) {}
    void start() override {
        for (const auto &subject : subjects_) {
            subject->start();
        }
    }
    void cut_power() override {
        for (const auto &subject : subjects_) {
            subject->stop();
        }
    }
    std::vector<pid_t> pids() override {
        std::vector<pid_t> all;
        for (const auto &subject : subjects_) {
            if (subject->is_running()) {
                all.push_back(subject->pid());
            }
        }
        return all;
    }

  private:
    const Subjects &subjects_;
};

class Agents : public Processes {
  public:
    explicit Agents(const Subjects &subjects) : subjects_(subjects), pids_(subjects.size()) {}
    void start() override {
        for (uint32_t tag = 0; tag < subjects_.size(); ++tag) {
            const std::filesystem::path &folder = subjects_[tag]->folder();
            server_.start(tag, folder, folder.string() + ".log");
        }
    }
    void cut_power() override {
        for (uint32_t tag = 0; tag < pids_.size(); ++tag) {
            server_.signal(tag, SIGKILL);
        }
        while (!pids().empty()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    std::vector<pid_t> pids() override {
        for (const vap::ForkReport &report : server_.reports()) {
            pids_[report.tag] = report.kind == vap::ForkReport::started ? report.pid : 0;
        }
        std::vector<pid_t> all;
        std::ranges::copy_if(pids_, std::back_inserter(all), [](pid_t pid) { return pid > 0; });
        return all;
    }

  private:
    const Subjects &subjects_;
    std::vector<pid_t> pids_;
    fleet::ForkServer server_{NORVEX_BIN_DIR "/norvex", 1, false};
};

struct Figures {
    double seconds_to_register = 0;
    double memory = 0; /**< of one process: proportional set size, bytes, the median */
    double answers_per_second = 0;
    double idle = 0;              /**< processor of all, per cent of one core */
    double seconds_to_return = 0; /**< of all, after a power cut */
    size_t lost = 0;              /**< processes that ended */
};

/** Answers a second while each device always has one command to answer. */
double rate(bench::Cloud &cloud, const Subjects &fleet, std::chrono::seconds duration) {
    for (size_t i = 0; i < fleet.size(); ++i) {
        cloud.send(*fleet[i], std::to_string(i));
    }
    size_t answered = 0;
    const auto start = bench::Clock::now();
    while (bench::Clock::now() < start + duration) {
        for (const std::string &mark : cloud.answers(100)) {
            cloud.send(*fleet[std::stoul(mark)], mark);
            ++answered;
        }
    }
    return static_cast<double>(answered) / bench::seconds_since(start);
}

double idle_share(const std::vector<pid_t> &processes) {
    std::this_thread::sleep_for(start_up);
    fleet::Usage usage;
    usage.look(processes);
    std::this_thread::sleep_for(idle_time);
    return usage.look(processes).processor_of_one * static_cast<double>(processes.size()) * 100;
}

double time_to_register(bench::Cloud &cloud, Processes &processes, size_t count) {
    const auto start = bench::Clock::now();
    processes.start();
    cloud.wait_until_online(count, std::chrono::seconds(120));
    return bench::seconds_since(start);
}

Figures run(Kind kind, size_t count) {
    const test::Broker broker(
        "listener PORT 127.0.0.1\nallow_anonymous true\n"
        "max_queued_messages 0\n");
    const test::TempFolder folder;
    bench::Cloud cloud(broker);
    Subjects subjects;
    for (size_t i = 0; i < count; ++i) {
        subjects.push_back(
            std::make_unique<Subject>(kind, "FLEET" + std::to_string(i), broker, folder.path()));
    }
    std::unique_ptr<Processes> processes;
    if (kind == Kind::agent) {
        processes = std::make_unique<Agents>(subjects);
    } else {
        processes = std::make_unique<Echoes>(subjects);
    }
    Figures figures;
    figures.seconds_to_register = time_to_register(cloud, *processes, count);
    cloud.wait_until_quiet();
    figures.memory = fleet::median_memory(processes->pids()) * 1024;
    figures.answers_per_second = rate(cloud, subjects, std::chrono::seconds(5));
    cloud.wait_until_quiet();
    figures.idle = idle_share(processes->pids());
    figures.lost = count - processes->pids().size();
    processes->cut_power();
    cloud.wait_until_quiet();
    figures.seconds_to_return = time_to_register(cloud, *processes, count);
    return figures;
}

}  // namespace

int main(int argument_count, char **arguments) {
    CLI::App app("Many devices on one broker");
    size_t count = 200;
    app.add_option("--devices", count, "How many")->check(CLI::Range(1, 10'000));
    CLI11_PARSE(app, argument_count, arguments);
    fleet::raise_descriptors({.devices = count, .brokers = 1, .folder = {}, .new_devices = 0});

    const Figures agents = run(Kind::agent, count);
    const Figures echoes = run(Kind::echo, count);
    const std::string devices = std::to_string(count) + " devices: ";
    const auto thousands = static_cast<double>(count) / 1000;
    bench::Table table;
    table.add({.what = devices + "all registered",
               .norvex = agents.seconds_to_register,
               .floor = echoes.seconds_to_register,
               .goal = bench::at_most(std::max(1.0, 15 * thousands / 4))});
    table.add({.what = devices + "memory of one (PSS)",
               .unit = bench::Unit::bytes,
               .norvex = agents.memory,
               .floor = echoes.memory,
               .goal = bench::at_most(450 << 10)});
    table.add({.what = devices + "answers",
               .unit = bench::Unit::per_second,
               .norvex = agents.answers_per_second,
               .floor = echoes.answers_per_second,
               .goal = bench::ratio_at_least(count < 1000 ? 0.95 : 0.9)});
    table.add({.what = devices + "all back after a power cut",
               .norvex = agents.seconds_to_return,
               .floor = echoes.seconds_to_return,
               .goal = bench::at_most(std::max(1.0, 10 * thousands))});
    table.add({.what = devices + "idle, of one core",
               .unit = bench::Unit::percent,
               .norvex = agents.idle,
               .floor = echoes.idle,
               .goal = bench::at_most(std::max(0.3, 1.5 * thousands))});
    table.add({.what = devices + "processes lost",
               .unit = bench::Unit::count,
               .norvex = static_cast<double>(agents.lost),
               .goal = bench::at_most(0)});
    return table.status();
}

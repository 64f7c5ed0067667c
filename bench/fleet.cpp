/* Many devices on one broker, beside as many echoes. */
#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/cloud.h"
#include "bench/support/table.h"

namespace {

using bench::Kind;
using bench::Subject;

struct Figures {
    double seconds_to_register = 0;
    double memory = 0; /**< of one process: proportional set size, bytes, the median */
    double answers_per_second = 0;
    size_t lost = 0; /**< processes that ended */
};

/** Answers a second while each device always has one command to answer. */
double rate(bench::Cloud &cloud, const std::vector<std::unique_ptr<Subject>> &fleet,
            std::chrono::seconds duration) {
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

Figures run(Kind kind, size_t count) {
    const test::Broker broker(
        "listener PORT 127.0.0.1\nallow_anonymous true\n"
        "max_queued_messages 0\n");
    const test::TempFolder folder;
    bench::Cloud cloud(broker);
    std::vector<std::unique_ptr<Subject>> fleet;
    for (size_t i = 0; i < count; ++i) {
        fleet.push_back(
            std::make_unique<Subject>(kind, "FLEET" + std::to_string(i), broker, folder.path()));
    }
    Figures figures;
    const auto start = bench::Clock::now();
    for (const auto &subject : fleet) {
        subject->start();
    }
    cloud.wait_until_online(count, std::chrono::seconds(120));
    figures.seconds_to_register = bench::seconds_since(start);
    cloud.wait_until_quiet();
    std::vector<double> memory;
    for (const auto &subject : fleet) {
        memory.push_back(subject->memory("Pss"));
    }
    std::ranges::nth_element(memory, memory.begin() + static_cast<std::ptrdiff_t>(count / 2));
    figures.memory = memory[count / 2];
    figures.answers_per_second = rate(cloud, fleet, std::chrono::seconds(5));
    figures.lost = static_cast<size_t>(
        std::ranges::count_if(fleet, [](const auto &subject) { return !subject->is_running(); }));
    return figures;
}

}  // namespace

int main(int argument_count, char **arguments) {
    CLI::App app("Many devices on one broker");
    size_t count = 200;
    app.add_option("--devices", count, "How many")->check(CLI::Range(1, 10'000));
    CLI11_PARSE(app, argument_count, arguments);

    const Figures agents = run(Kind::agent, count);
    const Figures echoes = run(Kind::echo, count);
    const std::string devices = std::to_string(count) + " devices: ";
    bench::Table table;
    table.add({.what = devices + "all registered",
               .norvex = agents.seconds_to_register,
               .floor = echoes.seconds_to_register,
               .goal = bench::at_most(10.0 * static_cast<double>(count) / 200)});
    table.add({.what = devices + "memory of one (PSS)",
               .unit = bench::Unit::bytes,
               .norvex = agents.memory,
               .floor = echoes.memory,
               .goal = bench::at_most(2 << 20)});
    table.add({.what = devices + "answers",
               .unit = bench::Unit::per_second,
               .norvex = agents.answers_per_second,
               .floor = echoes.answers_per_second,
               .goal = bench::ratio_at_least(0.95)});
    table.add({.what = devices + "processes lost",
               .unit = bench::Unit::count,
               .norvex = static_cast<double>(agents.lost),
               .goal = bench::at_most(0)});
    return table.status();
}

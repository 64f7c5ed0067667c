/* How often an agent that has nothing to do wakes up. */
#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "bench/support/cloud.h"
#include "bench/support/table.h"

namespace {

/** After this long the threads of the agent's start-up have ended. */
constexpr std::chrono::seconds start_up{30};

/** How often the threads of a process went to sleep so far, all together. */
double sleeps_of(pid_t process) {
    double sleeps = 0;
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks)) {
        std::ifstream status(task.path() / "status");
        for (std::string word; status >> word;) {
            if (word == "voluntary_ctxt_switches:") {
                status >> word;
                sleeps += std::stod(word);
            }
        }
    }
    return sleeps;
}

}  // namespace

int main(int count, char **arguments) {
    CLI::App app("How often an idle agent wakes up");
    int seconds = 120;
    app.add_option("--seconds", seconds, "How long to watch")->check(CLI::PositiveNumber);
    CLI11_PARSE(app, count, arguments);

    const test::Broker broker;
    const test::TempFolder folder;
    bench::Cloud cloud(broker);
    bench::Subject agent(bench::Kind::agent, "AGENT1", broker, folder.path());
    bench::Subject echo(bench::Kind::echo, "ECHO1", broker, folder.path());
    // A device that belongs to a project; one that does not looks for that, too.
    agent.configure("nx.manage.status", "1");
    agent.start();
    echo.start();
    cloud.wait_until_online(2, test::patience);
    std::this_thread::sleep_for(start_up);
    const double agent_before = sleeps_of(agent.pid());
    const double echo_before = sleeps_of(echo.pid());
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    bench::Table table;
    table.add({.what = "wake-ups of an idle agent, " + std::to_string(seconds) + " s",
               .unit = bench::Unit::per_second,
               .norvex = (sleeps_of(agent.pid()) - agent_before) / seconds,
               .floor = (sleeps_of(echo.pid()) - echo_before) / seconds,
               .goal = bench::at_most(0.15)});
    return table.status();
}

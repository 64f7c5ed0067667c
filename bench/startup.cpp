/* From exec to registered: the time until the cloud knows that a device is online. */
#include <algorithm>
#include <vector>

#include "bench/support/cloud.h"
#include "bench/support/table.h"

namespace {

using bench::Kind;
using bench::Subject;

constexpr int starts = 60;

double time_to_online(bench::Cloud &cloud, Subject &subject) {
    const auto start = bench::Clock::now();
    subject.start();
    cloud.wait_until_online(1, test::patience);
    const double seconds = bench::seconds_since(start);
    subject.stop();
    cloud.wait_until_quiet();
    return seconds;
}

double median(std::vector<double> &values) {
    std::ranges::nth_element(values, values.begin() + starts / 2);
    return values[starts / 2];
}

}  // namespace

int main() {
    const test::Broker broker;
    const test::TempFolder folder;
    bench::Cloud cloud(broker);
    Subject agent(Kind::agent, "AGENT1", broker, folder.path());
    Subject echo(Kind::echo, "ECHO1", broker, folder.path());
    std::vector<double> agent_times;
    std::vector<double> echo_times;
    for (int i = 0; i < starts; ++i) {
        agent_times.push_back(time_to_online(cloud, agent));
        echo_times.push_back(time_to_online(cloud, echo));
    }
    bench::Table table;
    table.add({.what = "start-up, from exec to registered",
               .norvex = median(agent_times),
               .floor = median(echo_times),
               .goal = bench::ratio_at_most(3.0)});
    return table.status();
}

/* A command's way from the cloud to the agent and back, beside an echo's on the same
 * broker. */
#include <sched.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bench/support/cloud.h"
#include "bench/support/table.h"

namespace {

using bench::Cloud;
using bench::Kind;
using bench::Subject;

/** Fresh programs for each round: where the system places them stays for long. */
constexpr int rounds = 8;
constexpr int trips = 1500;
constexpr int warm_up = 100;

/** While it lives, this process and those that it starts stay on the first core. */
class OneCore {
  public:
    OneCore() {
        sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t first;
        CPU_ZERO(&first);
        CPU_SET(0, &first);
        sched_setaffinity(0, sizeof first, &first);
    }
    ~OneCore() { sched_setaffinity(0, sizeof before_, &before_); }
    OneCore(const OneCore &) = delete;
    OneCore &operator=(const OneCore &) = delete;

  private:
    cpu_set_t before_{};
};

/** The agent and the echo on a broker of their own. */
struct Pair {
    Pair() {
        agent.start();
        echo.start();
        cloud.wait_until_online(2, test::patience);
    }

    test::Broker broker;
    test::TempFolder folder;
    Cloud cloud{broker};
    Subject agent{Kind::agent, "AGENT1", broker, folder.path()};
    Subject echo{Kind::echo, "ECHO1", broker, folder.path()};
};

double quantile(std::vector<double> &values, double share) {
    const auto place =
        values.begin() + static_cast<std::ptrdiff_t>(static_cast<double>(values.size()) * share);
    std::ranges::nth_element(values, place);
    return *place;
}

/** The times of round trips, seconds. */
struct Times {
    std::vector<double> agent;
    std::vector<double> echo;
};

/** Makes trips in turns. Between two the acknowledgements of the one before run out,
 *  which would else be the other's burden. */
void make_trips(Times &times) {
    Pair pair;
    const auto trip = [&](const Subject &subject) {
        pair.cloud.drain();
        return pair.cloud.round_trip(subject);
    };
    for (int i = -warm_up; i < trips; ++i) {
        const double agent = trip(pair.agent);
        const double echo = trip(pair.echo);
        if (i >= 0) {
            times.agent.push_back(agent);
            times.echo.push_back(echo);
        }
    }
}

void round_trips(const std::string &where, bench::Table &table) {
    Times times;
    for (int i = 0; i < rounds; ++i) {
        make_trips(times);
    }
    for (const auto &[name, share] :
         {std::pair("median", 0.5), std::pair("99th percentile", 0.99)}) {
        table.add({.what = "round trip, 1 KB, " + where + ", " + name,
                   .norvex = quantile(times.agent, share),
                   .floor = quantile(times.echo, share),
                   .goal = bench::ratio_at_most(1.15)});
    }
}

/** Answers a second while `window` commands are always on their way. */
double rate(Cloud &cloud, const Subject &subject, std::chrono::milliseconds duration) {
    constexpr int window = 16;
    int answered = 0;
    for (int i = 0; i < window; ++i) {
        cloud.send(subject, "1");
    }
    const auto start = bench::Clock::now();
    while (bench::Clock::now() < start + duration) {
        for (const std::string &mark : cloud.answers(100)) {
            cloud.send(subject, mark);
            ++answered;
        }
    }
    const double per_second = answered / bench::seconds_since(start);
    for (int left = window; left > 0;) {
        left -= static_cast<int>(cloud.answers(1000).size());
    }
    return per_second;
}

void sustained(const std::string &where, bench::Table &table) {
    Pair pair;
    std::vector<double> agent;
    std::vector<double> echo;
    for (int i = 0; i < 10; ++i) {
        agent.push_back(rate(pair.cloud, pair.agent, std::chrono::milliseconds(500)));
        echo.push_back(rate(pair.cloud, pair.echo, std::chrono::milliseconds(500)));
    }
    table.add({.what = "commands, sustained, one device, " + where,
               .unit = bench::Unit::per_second,
               .norvex = quantile(agent, 0.5),
               .floor = quantile(echo, 0.5),
               .goal = bench::ratio_at_least(0.95)});
}

}  // namespace

int main() {
    bench::Table table;
    {
        const OneCore pinned;
        round_trips("one core", table);
        sustained("one core", table);
    }
    round_trips("free", table);
    sustained("free", table);
    return table.status();
}

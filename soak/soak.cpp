/* An agent in a long life under load, and one whose power is cut again and again. */
#include <sys/un.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>

#include "bench/support/cloud.h"
#include "paths.h"
#include "soak/brokers.h"
#include "tests/support/power_cut.h"

namespace {

using Random = std::mt19937;

/** How much faster than ours the device's time passes. */
constexpr double speed = 2500;
constexpr double hours_of_load = 4;

int pick(Random &random, int below) {
    return std::uniform_int_distribution<>(0, below - 1)(random);
}

long entries(const std::string &folder) {
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

struct Sample {
    double memory = 0; /**< its own, without the libraries, bytes */
    long descriptors = 0;
    long threads = 0;
};

/** The least of each figure: what stays when nothing is under way. */
Sample least(const Sample *begin, const Sample *end) {
    Sample result = *begin;
    for (const Sample *sample = begin; sample != end; ++sample) {
        result.memory = std::min(result.memory, sample->memory);
        result.descriptors = std::min(result.descriptors, sample->descriptors);
        result.threads = std::min(result.threads, sample->threads);
    }
    return result;
}

class Life {
  public:
    explicit Life(Random &random) : random_(random) {
        std::ofstream(agent_.folder() / "root/etc/nxapi.conf", std::ios::app) << "retry_ms=50\n";
        agent_.configure("nx.manage.status", "1");
        start();
    }

    double days() const { return bench::seconds_since(birth_) * speed / 86400; }
    int answers() const { return answers_; }

    /** Commands, log lines and system events for some hours of the device. */
    void load() {
        for (const double end = days() + hours_of_load / 24; days() < end;) {
            command();
            if (pick(random_, 4) == 0) {
                log_line();
            }
            if (pick(random_, 20) == 0) {
                system_event();
            }
            console_->loop(20);
        }
    }

    /** A look at the process when what was under way has ended. */
    Sample sample() {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        const std::string process = "/proc/" + std::to_string(agent_.pid());
        const Sample now{agent_.memory("Anonymous"), entries(process + "/fd"),
                         entries(process + "/task")};
        printf("%6.2f d  %7d answers  %6.0f KiB  %3ld fds  %2ld threads\n", days(), answers_,
               now.memory / 1024, now.descriptors, now.threads);
        return now;
    }

    void reboot() {
        puts("          the device restarts");
        ask("dev/5", "");
        for (const auto limit = test::Clock::now() + test::patience; agent_.is_running();) {
            if (test::Clock::now() > limit) {
                throw std::runtime_error("the device does not restart");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        start();
    }

    void terminate() {
        puts("          the agent is told to end");
        agent_.stop(SIGTERM);
        start();
    }

    void outage() {
        puts("          the broker is away");
        broker_.stop();
        std::this_thread::sleep_for(std::chrono::milliseconds(100 + pick(random_, 300)));
        broker_.start();
        meet();
    }

  private:
    void start() {
        agent_.start();
        meet();
    }

    void meet() {
        console_.emplace(broker_);
        bench::Cloud(broker_).wait_until_online(1, test::patience);
    }

    void command() {
        struct Row {
            const char *slot;
            const char *request;
        };
        static constexpr Row rows[] = {
            {"dev/0", ""},
            {"dev/1", ""},
            {"dev/2", ""},
            {"dev/19", ""},
            {"net/4", ""},
            {"dev/3", R"({"timestamp":1700000000,"time_array":[{"mode":1,"timestamp":100}]})"},
            {"dev/6", R"({"mainetmode":2,"timestamp":201,"cycle_restart":{"timeval":720}})"},
            {"wlan/0", R"({"radio1":[)"},
            {"wlan/0", nullptr},
            {"wlan/0", nullptr},
        };
        const Row &row = rows[pick(random_, std::size(rows))];
        ask(row.slot, row.request != nullptr ? row.request : test::ssid_order(++orders_));
    }

    void ask(const std::string &slot, const std::string &request) {
        const std::string topic = "norvex/v1/" + agent_.serial();
        const std::string mark = std::to_string(++answers_);
        console_->received.clear();
        console_->publish(topic + "/cmd/" + slot, request, topic + "/rsp/" + slot, mark);
        for (const auto limit = test::Clock::now() + test::patience; test::Clock::now() < limit;) {
            console_->loop();
            if (std::ranges::any_of(console_->received,
                                    [&](const auto &got) { return got.correlation == mark; })) {
                return;
            }
        }
        throw std::runtime_error(slot + " is not answered: " + request);
    }

    /** A program of the device hands over a line. */
    void log_line() const {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        const std::string path = agent_.folder() / "root/var/norvex_socket";
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
            const std::string text = "norvex.log.line " + std::to_string(answers_);
            send(fd, text.data(), text.size(), MSG_NOSIGNAL);
        }
        close(fd);
    }

    /** The system log gets a record. */
    void system_event() const {
        const auto file = agent_.folder() / "hardware.json";
        nlohmann::json hardware = nlohmann::json::parse(std::ifstream(file));
        hardware["syslog"].back()["time"] = std::to_string(answers_);
        std::ofstream(file.string() + ".soak") << hardware;
        std::filesystem::rename(file.string() + ".soak", file);
    }

    Random &random_;
    test::Broker broker_;
    test::TempFolder place_;
    bench::Subject agent_{bench::Kind::agent, "SOAK1", broker_, place_.path()};
    std::optional<test::Console> console_;
    bench::Clock::time_point birth_ = bench::Clock::now();
    int answers_ = 0;
    int orders_ = 0;
};

/** True when a process has what it had some days before. */
bool keeps(const std::vector<Sample> &life) {
    const Sample *first = life.data();
    const auto quarter = static_cast<std::ptrdiff_t>(life.size() / 4);
    const Sample *end = first + life.size();
    const Sample before = least(first + quarter, first + 2 * quarter);
    const Sample after = least(end - quarter, end);
    const double more = (after.memory - before.memory) / 1024;
    printf(
        "one process, second and last quarter of its life: %+.0f KiB (<= 64), %+ld fds (<= 0), "
        "%+ld threads (<= 0)\n",
        more, after.descriptors - before.descriptors, after.threads - before.threads);
    return more <= 64 && after.descriptors <= before.descriptors && after.threads <= before.threads;
}

bool live(double days, Random &random) {
    Life life(random);
    std::vector<Sample> samples;
    for (int i = 0; life.days() < days / 3; ++i) {
        life.load();
        life.sample();
        i % 3 == 0 ? life.reboot() : i % 3 == 1 ? life.outage() : life.terminate();
    }
    while (life.days() < days || samples.size() < 4) {
        life.load();
        samples.push_back(life.sample());
        if (samples.size() % 2 == 1) {
            life.outage();
        }
    }
    return keeps(samples);
}

bool cut_power(int kills, Random &random) {
    const test::Broker broker;
    const test::TempFolder place;
    const bench::Subject device(bench::Kind::agent, "CUT1", broker, place.path());
    test::PowerCut power(device.folder(), device.serial(), NORVEX_BIN_DIR "/norvex", broker);
    int faults = 0;
    for (int i = 0; i < kills; ++i) {
        const std::chrono::microseconds after(pick(random, 50'000));
        const std::string fault = power.once(after);
        if (!fault.empty()) {
            ++faults;
            printf("cut %d, after %.3f ms: %s\n", i, static_cast<double>(after.count()) / 1e3,
                   fault.c_str());
        }
    }
    printf("power cuts: %d among %d orders, %d left a broken device (<= 0)\n", kills,
           power.orders(), faults);
    return faults == 0;
}

}  // namespace

int main(int count, char **arguments) {
    CLI::App app("A long life under load, and power cuts");
    double days = 7;
    int kills = 300;
    int devices = 200;
    unsigned seed = std::random_device()();
    app.add_option("--days", days, "Days of the device")->check(CLI::NonNegativeNumber);
    app.add_option("--kills", kills, "Power cuts")->check(CLI::NonNegativeNumber);
    app.add_option("--devices", devices, "Devices on several brokers")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--seed", seed, "Of all that happens by chance");
    CLI11_PARSE(app, count, arguments);

    setvbuf(stdout, nullptr, _IOLBF, 0);  // a child that starts inherits no text
    printf("seed %u\n", seed);
    Random random(seed);
    try {
        const bool spread = devices == 0 || soak::outlive_brokers(devices);
        setenv("VAP_SPEED", std::to_string(speed).c_str(), 1);
        // The freed memory that the C library keeps for each thread grows for days.
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 1);
        const bool lived = days == 0 || live(days, random);
        const bool whole = kills == 0 || cut_power(kills, random);
        return spread && lived && whole ? 0 : 1;
    } catch (const std::exception &error) {
        fprintf(stderr, "soak: %s\n", error.what());
        return 1;
    }
}

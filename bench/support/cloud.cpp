#include "bench/support/cloud.h"

#include <sched.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <stdexcept>
#include "paths.h"

namespace bench {
namespace {

const std::string programs = NORVEX_BIN_DIR "/";

void vap(const std::string &arguments) {
    if (system((programs + "vap " + arguments + " >/dev/null").c_str()) != 0) {
        throw std::runtime_error("vap " + arguments + " fails");
    }
}

/** A request of the length and the shape that a configuration has. */
std::string one_kilobyte() {
    std::string text = R"({"timestamp":1700000000,"radio1":[)";
    for (int slot = 0; text.size() < 900; ++slot) {
        text += std::string(slot == 0 ? "" : ",") + R"({"ssididx":)" + std::to_string(slot) +
                R"(,"ssid":"Harbour Cafe","ssidenable":1,"encrypt":2,"passwd":"welcome-2024"})";
    }
    text += R"(],"comment":")";
    return text + std::string(1024 - text.size() - 2, '-') + "\"}";
}

}  // namespace

Subject::Subject(Kind kind, const std::string &serial, const test::Broker &broker,
                 const std::filesystem::path &place)
    : kind_(kind), serial_(serial), folder_(place / serial) {
    if (kind == Kind::agent) {
        vap("new " + folder_.string() + " --serial " + serial);
        std::filesystem::create_directories(folder_ / "root/etc");
        std::ofstream(folder_ / "root/etc/nxapi.conf") << "broker=" << broker.url() << "\n";
        words_ = {programs + "norvex"};
    } else {
        words_ = {programs + "bench_echo", std::to_string(broker.port()), serial};
    }
}

void Subject::configure(const std::string &key, const std::string &value) const {
    vap("set " + folder_.string() + " " + key + " " + value);
}

void Subject::start() {
    setenv("VAP_DEVICE", folder_.c_str(), 1);
    process_ = std::make_unique<test::Child>(words_, folder_.string() + ".log");
}

double Subject::memory(const std::string &kind) const {
    std::ifstream rollup("/proc/" + std::to_string(pid()) + "/smaps_rollup");
    for (std::string word; rollup >> word;) {
        if (word == kind + ":") {
            rollup >> word;
            return std::stod(word) * 1024;
        }
    }
    return 0;
}

Cloud::Cloud(const test::Broker &broker)
    : statuses_(broker, {}, "norvex/v1/+/status"),
      responses_(broker, {}, "norvex/v1/+/rsp/+/+"),
      request_(one_kilobyte()) {}

void Cloud::wait_until_online(size_t count, std::chrono::seconds limit) {
    std::set<std::string> online;
    for (const auto end = Clock::now() + limit; online.size() < count;) {
        statuses_.loop();
        for (const test::Received &message : statuses_.received) {
            if (message.payload.starts_with(R"({"online":true)")) {
                online.insert(message.topic);
            }
        }
        statuses_.received.clear();
        if (Clock::now() > end) {
            throw std::runtime_error(std::to_string(count - online.size()) + " of " +
                                     std::to_string(count) + " do not come online");
        }
    }
}

void Cloud::wait_until_quiet() {
    constexpr double quiet = 0.05;
    for (auto last = Clock::now(); seconds_since(last) < quiet;) {
        statuses_.loop();
        responses_.loop();
        if (!statuses_.received.empty() || !responses_.received.empty()) {
            last = Clock::now();
        }
        statuses_.received.clear();
        responses_.received.clear();
    }
}

void Cloud::send(const Subject &subject, const std::string &mark) {
    responses_.publish(subject.command_topic(), request_, subject.response_topic(), mark);
}

std::vector<std::string> Cloud::answers(int ms) {
    responses_.loop(ms);
    std::vector<std::string> marks;
    for (const test::Received &message : responses_.received) {
        if (message.payload != "{\n\t\"resp_code\":\t0\n}") {
            throw std::runtime_error("no answer: " + message.payload);
        }
        marks.push_back(message.correlation);
    }
    responses_.received.clear();
    return marks;
}

void Cloud::drain() {
    constexpr double long_enough = 100e-6;
    for (const auto start = Clock::now(); seconds_since(start) < long_enough;) {
        answers(0);
        sched_yield();  // on one core the others need it
    }
}

double Cloud::round_trip(const Subject &subject) {
    const auto start = Clock::now();
    send(subject, "1");
    for (const auto end = start + test::patience; answers(1000).empty();) {
        if (Clock::now() > end) {
            throw std::runtime_error(subject.serial() + " does not answer");
        }
    }
    return seconds_since(start);
}

}  // namespace bench

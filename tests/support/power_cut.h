/**
 * Power cuts: a device that is configured without a pause and loses its power.
 */
#ifndef TESTS_SUPPORT_POWER_CUT_H
#define TESTS_SUPPORT_POWER_CUT_H

#include <sys/resource.h>

#include <atomic>
#include <map>

#include "tests/support/processes.h"

namespace test {

/** Names of all twelve SSIDs that tell which order they come from. */
inline std::string ssid_name(int order, const char *radio, int slot) {
    return "Cafe " + std::to_string(order) + " " + radio + " " + std::to_string(slot);
}

/** Request of wlan_config_set that gives every SSID such a name. */
inline std::string ssid_order(int order) {
    const auto list = [order](const char *radio, int count) {
        std::string text;
        for (int slot = 0; slot < count; ++slot) {
            text += std::string(slot == 0 ? "" : ",") + R"({"ssididx":)" + std::to_string(slot) +
                    R"(,"ssidenable":1,"encrypt":2,"security":0,"passwd":"welcome-2024","ssid":")" +
                    ssid_name(order, radio, slot) + "\"}";
        }
        return text;
    };
    return R"({"timestamp":)" + std::to_string(order) + R"(,"radio1":[)" + list("wl2g", 8) +
           R"(],"radio2":[)" + list("wl5g", 4) + "]}";
}

class PowerCut {
  public:
    /** On a device whose cloud settings name the broker. */
    PowerCut(std::filesystem::path device, const std::string &serial, std::string agent,
             const Broker &broker)
        : device_(std::move(device)),
          topic_("norvex/v1/" + serial),
          agent_(std::move(agent)),
          console_(broker, {}, topic_ + "/#") {}

    /** Starts the agent, orders SSIDs again and again, and cuts its power `after` this
     *  time behind the first answer. Returns what is wrong with the device then, "" for
     *  nothing. */
    std::string once(std::chrono::microseconds after) {
        return cut_by(SIGKILL, [&](Child &agent) {
            int status = 0;
            std::atomic<bool> cut = false;
            std::thread cutter([&] {
                std::this_thread::sleep_for(after);
                status = agent.end(SIGKILL);
                cut = true;
            });
            while (!cut) {
                order([&] { return cut.load(); });
            }
            cutter.join();
            return status;
        });
    }

    /** The same, but the power goes where a file would get longer than `bytes`: inside
     *  the writing of the configuration, since nothing else that is written is as long. */
    std::string inside_write(rlim_t bytes) {
        std::filesystem::remove(device_ / "journal.jsonl");
        std::filesystem::create_symlink("/dev/null", device_ / "journal.jsonl");
        return cut_by(SIGXFSZ, [&](Child &agent) {
            const rlimit limit{bytes, bytes};
            const rlimit no_core{0, 0};
            prlimit(agent.pid(), RLIMIT_CORE, &no_core, nullptr);
            prlimit(agent.pid(), RLIMIT_FSIZE, &limit, nullptr);
            order([&] { return !agent.is_running(); });
            return agent.end(SIGKILL);
        });
    }

    int orders() const { return sent_; }

  private:
    /** Starts the agent, lets it answer an order and `cut` end it, by this signal. */
    template <typename Cut>
    std::string cut_by(int signal, Cut cut) {
        setenv("VAP_DEVICE", device_.c_str(), 1);
        console_.received.clear();
        Child agent({agent_}, device_.string() + ".log");
        if (!hear("/status", R"({"online":true,)")) {
            return "the agent does not come online";
        }
        if (!order([] { return false; })) {
            return "the agent does not answer";
        }
        const int status = cut(agent);
        if (!WIFSIGNALED(status) || WTERMSIG(status) != signal) {
            return "the agent ended by itself, wait status " + std::to_string(status);
        }
        return fault_of_config();
    }

    /** Waits for a message below the device's topic; false when `given_up` or late. */
    template <typename GivenUp>
    bool hear(const std::string &below, const std::string &text, GivenUp given_up) {
        for (const auto limit = Clock::now() + patience; Clock::now() < limit && !given_up();) {
            console_.loop(1);
            for (const Received &message : std::exchange(console_.received, {})) {
                if (message.topic == topic_ + below &&
                    (message.payload.starts_with(text) || message.correlation == text)) {
                    return true;
                }
            }
        }
        return false;
    }
    bool hear(const std::string &below, const std::string &text) {
        return hear(below, text, [] { return false; });
    }

    template <typename GivenUp>
    bool order(GivenUp given_up) {
        const std::string mark = std::to_string(++sent_);
        console_.publish(topic_ + "/cmd/wlan/0", ssid_order(sent_), topic_ + "/rsp/wlan/0", mark);
        const bool answered = hear("/rsp/wlan/0", mark, given_up);
        answered_ = answered ? sent_ : answered_;
        return answered;
    }

    /** The order that all SSIDs of a radio come from, -1 when there is none. */
    int order_of(std::map<std::string, std::string> &values, const std::string &radio, int count) {
        for (int order = answered_; order <= sent_; ++order) {
            int slot = 0;
            while (slot < count && values[radio + ".ssid" + std::to_string(slot) + ".ssid"] ==
                                       ssid_name(order, radio.c_str(), slot)) {
                ++slot;
            }
            if (slot == count) {
                return order;
            }
        }
        return -1;
    }

    std::string fault_of_config() {
        std::ifstream file(device_ / "config");
        std::map<std::string, std::string> values;
        for (std::string line; std::getline(file, line);) {
            const size_t equals = line.find('=');
            if (equals == line.npos || equals == 0 || file.eof()) {
                return "config: a broken line: " + line;
            }
            values[line.substr(0, equals)] = line.substr(equals + 1);
        }
        if (values.size() < keys_) {
            return "config: only " + std::to_string(values.size()) + " keys of " +
                   std::to_string(keys_);
        }
        keys_ = values.size();
        // The radios are committed one after the other, the slower band first.
        const int slow = order_of(values, "wl2g", 8);
        const int fast = order_of(values, "wl5g", 4);
        if (fast < 0 || slow < fast) {
            return "config: SSIDs of orders " + std::to_string(slow) + " and " +
                   std::to_string(fast) + " where " + std::to_string(answered_) +
                   " was answered and " + std::to_string(sent_) + " sent";
        }
        return "";
    }

    std::filesystem::path device_;
    std::string topic_;
    std::string agent_;
    Console console_;
    int sent_ = 0;
    int answered_ = 0;
    size_t keys_ = 0;
};

}  // namespace test

#endif

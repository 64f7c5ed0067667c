#include "soak/brokers.h"

#include <sys/un.h>

#include <array>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "bench/support/cloud.h"

namespace soak {
namespace {

constexpr int keepalive_s = 5;
constexpr double after_kill = 5;                  /**< seconds until all can be commanded */
constexpr double after_freeze = 2 * keepalive_s;  // likewise

/** A broker and what listens on it while it lives. */
struct Place {
    test::Broker broker;
    std::optional<test::Console> console;
};

/** Where a device is, as the text of its newest connection tells. */
struct Presence {
    bool online = false;
    double since = 0;
    unsigned connection = 0;
    size_t place = 0;
};

class Fleet {
  public:
    explicit Fleet(int count) {
        std::string list;
        for (Place &place : places_) {
            place.console.emplace(place.broker);
            list += (list.empty() ? "" : ",") + place.broker.url();
        }
        for (int i = 0; i < count; ++i) {
            devices_.push_back(std::make_unique<bench::Subject>(bench::Kind::agent,
                                                                "SPREAD" + std::to_string(i),
                                                                places_[0].broker, folder_.path()));
            std::ofstream(devices_.back()->folder() / "root/etc/nxapi.conf")
                << "broker=" << list << "\nkeepalive_s=" << keepalive_s << "\n";
            devices_.back()->start();
        }
        wait([&] { return online() == devices_.size(); }, 60);
    }

    Place &place(size_t index) { return places_[index]; }

    /** Devices whose newest connection is at a place. */
    std::vector<bench::Subject *> at(size_t place) {
        std::vector<bench::Subject *> found;
        for (const auto &device : devices_) {
            const Presence &presence = presence_[device->serial()];
            if (presence.online && presence.place == place) {
                found.push_back(device.get());
            }
        }
        return found;
    }

    /** Seconds until each device answered a command that it got where it is now. */
    double command_all(const std::vector<bench::Subject *> &devices, size_t not_at) {
        const auto start = bench::Clock::now();
        std::map<std::string, size_t> sent; /**< to whom, and where */
        wait(
            [&] {
                size_t answered = 0;
                for (const bench::Subject *device : devices) {
                    const Presence &presence = presence_[device->serial()];
                    const auto before = sent.find(device->serial());
                    if (presence.online && presence.place != not_at &&
                        (before == sent.end() || before->second != presence.place)) {
                        sent[device->serial()] = presence.place;
                        send(*device, presence.place);
                    }
                    answered += answered_.contains(device->serial()) ? 1U : 0U;
                }
                return answered == devices.size();
            },
            60);
        answered_.clear();
        return bench::seconds_since(start);
    }

    /** A program of each device hands over a line, which the agent uploads. */
    void log_lines(const std::vector<bench::Subject *> &devices, const std::string &text) {
        for (const bench::Subject *device : devices) {
            const std::string path = device->folder() / "root/var/norvex_socket";
            const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_un address{AF_UNIX, {}};
            path.copy(address.sun_path, sizeof address.sun_path - 1);
            const std::string line = "norvex.log." + text;
            if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
                ::send(fd, line.data(), line.size(), MSG_NOSIGNAL) < 0) {
                throw std::runtime_error("no control socket at " + path);
            }
            close(fd);
        }
    }

    /** How many of the devices' lines have not come within a while. */
    size_t missing(const std::vector<bench::Subject *> &devices, const std::string &text) {
        const auto count = [&] {
            size_t missing = 0;
            for (const bench::Subject *device : devices) {
                missing += logged_.contains(device->serial() + " " + text) ? 0U : 1U;
            }
            return missing;
        };
        wait([&] { return count() == 0; }, 20, false);
        return count();
    }

    size_t ran_twice() const { return twice_; }

  private:
    size_t online() const {
        return static_cast<size_t>(
            std::ranges::count_if(presence_, [](const auto &row) { return row.second.online; }));
    }

    template <typename Done>
    void wait(Done done, int seconds, bool must = true) {
        const auto end = test::Clock::now() + std::chrono::seconds(seconds);
        while (!done() && test::Clock::now() < end) {
            for (size_t i = 0; i < places_.size(); ++i) {
                listen(i);
            }
        }
        if (must && !done()) {
            throw std::runtime_error("the fleet does not come back");
        }
    }

    void listen(size_t place) {
        std::optional<test::Console> &console = places_[place].console;
        if (!console) {
            return;
        }
        console->loop(1);
        for (const test::Received &message : std::exchange(console->received, {})) {
            const std::string below = message.topic.substr(std::string("norvex/v1/").size());
            const std::string serial = below.substr(0, below.find('/'));
            if (below.ends_with("/status")) {
                take_status(serial, message.payload, place);
            } else if (below.ends_with("/up/running_log")) {
                for (const char *word : {"kill", "freeze"}) {
                    if (message.payload.find(word) != std::string::npos) {
                        logged_.insert(serial + " " + word);
                    }
                }
            } else if (below.find("/rsp/") != std::string::npos) {
                twice_ += marks_.insert(message.correlation).second ? 0 : 1;
                answered_.insert(serial);
            }
        }
    }

    void take_status(const std::string &serial, const std::string &text, size_t place) {
        const nlohmann::json status = nlohmann::json::parse(text);
        const Presence told{status.at("online"), status.at("since"), status.at("connection"),
                            place};
        Presence &known = presence_[serial];
        if (std::pair(told.since, told.connection) >= std::pair(known.since, known.connection)) {
            known = told;
        }
    }

    void send(const bench::Subject &device, size_t place) {
        places_[place].console->publish(device.command_topic(), "", device.response_topic(),
                                        std::to_string(++sent_));
    }

    std::array<Place, 3> places_;
    test::TempFolder folder_;
    std::vector<std::unique_ptr<bench::Subject>> devices_;
    std::map<std::string, Presence> presence_;
    std::set<std::string> answered_; /**< who has, since this was emptied */
    std::set<std::string> marks_;    /**< of all answers */
    std::set<std::string> logged_;
    size_t twice_ = 0;
    int sent_ = 0;
};

bool report(const char *what, size_t devices, double seconds, double limit, size_t missing) {
    printf(
        "a broker %s: its %zu devices can be commanded after %.1f s (<= %.0f), %zu of their log "
        "lines lost (<= 0)\n",
        what, devices, seconds, limit, missing);
    return devices > 0 && seconds <= limit && missing == 0;
}

}  // namespace

bool outlive_brokers(int devices) {
    Fleet fleet(devices);
    printf("%d devices on three brokers: %zu, %zu, %zu\n", devices, fleet.at(0).size(),
           fleet.at(1).size(), fleet.at(2).size());

    auto lost = fleet.at(0);
    fleet.place(0).console.reset();
    fleet.place(0).broker.stop(SIGKILL);
    fleet.log_lines(lost, "kill");
    double seconds = fleet.command_all(lost, 0);
    bool good = report("dies", lost.size(), seconds, after_kill, fleet.missing(lost, "kill"));
    fleet.place(0).broker.start();
    fleet.place(0).console.emplace(fleet.place(0).broker);

    lost = fleet.at(1);
    fleet.place(1).broker.signal(SIGSTOP);
    fleet.log_lines(lost, "freeze");
    seconds = fleet.command_all(lost, 1);
    fleet.place(1).broker.signal(SIGCONT);
    good = report("freezes", lost.size(), seconds, after_freeze, fleet.missing(lost, "freeze")) &&
           good;

    printf("commands that were answered twice: %zu (<= 0)\n", fleet.ran_twice());
    return good && fleet.ran_twice() == 0;
}

}  // namespace soak

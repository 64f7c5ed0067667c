#include "tools/nxctl_brokers.h"

#include <algorithm>

#include "tools/nxctl_output.h"

namespace nxctl {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds straggling{3000}; /**< for a connection, once another one is made */
constexpr milliseconds quiet{300};       /**< a longer pause ends what a broker retains */
constexpr std::chrono::seconds shortest_pause{1};
constexpr std::chrono::seconds longest_pause{30};

bool is_same(const nxapi::BrokerAddress &a, const nxapi::BrokerAddress &b) {
    return a.host == b.host && a.port == b.port;
}

}  // namespace

Brokers::Brokers(const Access &access, Loss loss) : access_(access), loss_(loss) {
    std::vector<nxapi::BrokerAddress> list;
    std::string why;
    if (!nxapi::parse_brokers(access.broker, list, why)) {
        throw tools::Misuse(why);
    }
    for (const nxapi::BrokerAddress &broker : list) {
        if (std::ranges::none_of(lines_,
                                 [&](const Line &l) { return is_same(l.broker, broker); })) {
            lines_.push_back({broker, nullptr, "", {}, shortest_pause});
        }
    }
    connect_all();
    is_started_ = true;
    for (const Line &line : lines_) {
        if (!line.why.empty()) {
            tell(line);
        }
    }
}

// Those that answer do not wait long for those that do not.
void Brokers::connect_all() {
    for (size_t broker = 0; broker < lines_.size(); ++broker) {
        connect(broker);
    }
    bool is_one_there = false;
    const auto look = [&] {
        const bool was_there = std::exchange(is_one_there, is_one_there || any_is_connected());
        if (is_one_there && !was_there) {
            for (const Line &line : lines_) {
                if (line.session) {
                    line.session->hurry(Clock::now() + straggling);
                }
            }
        }
        return all_are(&Session::is_connected);
    };
    work(look, Clock::time_point::max());
}

bool Brokers::any_is_connected() const {
    return std::ranges::any_of(
        lines_, [](const Line &line) { return line.session && line.session->is_connected(); });
}

bool Brokers::all_are(bool (Session::*state)() const) const {
    return std::ranges::all_of(
        lines_, [=](const Line &line) { return !line.session || (line.session.get()->*state)(); });
}

void Brokers::connect(size_t broker) {
    Line &line = lines_[broker];
    try {
        line.session = std::make_unique<Session>(access_, line.broker);
    } catch (const Lost &lost) {
        lose(broker, lost);
        return;
    }
    line.session->on_message = [this, broker](Received &message) {
        message.broker = broker;
        on_message(message);
    };
    line.session->on_acknowledged = [this, broker](int identifier, int reason) {
        on_acknowledged(broker, identifier, reason);
    };
    if (!topics_.empty()) {
        line.session->subscribe(topics_);
    }
}

void Brokers::lose(size_t broker, const Lost &lost) {
    Line &line = lines_[broker];
    const bool is_news = line.why.empty();
    line.session.reset();
    line.why = lost.what();
    line.next_try = Clock::now() + line.pause;
    line.pause = std::min(2 * line.pause, longest_pause);
    const bool is_last = std::ranges::none_of(
        lines_, [](const Line &other) { return other.session || other.why.empty(); });
    if (is_last && !(is_started_ && loss_ == Loss::tried_again)) {
        for (const Line &other : lines_) {
            if (!is_started_ && &other != &line) {
                complain(other.why);
            }
        }
        throw Lost(lost);
    }
    if (is_started_ && is_news) {
        tell(line);
    }
    on_lost(broker);
}

void Brokers::tell(const Line &line) const {
    complain(line.why + (loss_ == Loss::tried_again ? "; trying again until it works" : ""));
}

void Brokers::subscribe(const std::vector<std::string> &topics) {
    topics_.insert(topics_.end(), topics.begin(), topics.end());
    for (const Line &line : lines_) {
        if (line.session) {
            line.session->subscribe(topics);
        }
    }
    work([&] { return all_are(&Session::is_ready); }, Clock::time_point::max());
}

void Brokers::settle() {
    auto last_in = Clock::now();
    while (Clock::now() < last_in + quiet) {
        work([] { return false; }, last_in + quiet);
        for (const Line &line : lines_) {
            last_in = line.session ? std::max(last_in, line.session->last_in()) : last_in;
        }
    }
}

std::optional<int> Brokers::publish(size_t broker, const Sent &message) {
    const Line &line = lines_[broker];
    const bool is_up = line.session && line.session->is_connected();
    return is_up ? line.session->publish(message) : std::nullopt;
}

void Brokers::turn(size_t broker, short ready) {
    Line &line = lines_[broker];
    try {
        line.session->work(ready);
    } catch (const Lost &lost) {
        lose(broker, lost);
        return;
    }
    if (!line.why.empty() && line.session->is_ready()) {
        complain("connected to " + address(broker));
        line.why.clear();
        line.pause = shortest_pause;
    }
}

bool Brokers::work(const std::function<bool()> &done, Clock::time_point until) {
    constexpr milliseconds longest_wait{1000};
    constexpr milliseconds impatient_wait{100};
    while (!done()) {
        const auto now = Clock::now();
        if (now >= until) {
            return false;
        }
        std::vector<pollfd> wanted;
        for (size_t broker = 0; broker < lines_.size(); ++broker) {
            Line &line = lines_[broker];
            if (!line.session && is_started_ && loss_ == Loss::tried_again &&
                now >= line.next_try) {
                connect(broker);
            }
            wanted.push_back(line.session ? line.session->wanted() : pollfd{-1, 0, 0});
        }
        const auto longest = all_are(&Session::is_ready) ? longest_wait : impatient_wait;
        const auto wait = std::min(std::chrono::ceil<milliseconds>(until - now), longest);
        poll(wanted.data(), wanted.size(), static_cast<int>(wait.count()));
        for (size_t broker = 0; broker < lines_.size(); ++broker) {
            if (lines_[broker].session) {
                turn(broker, wanted[broker].revents);
            }
        }
    }
    return true;
}

}  // namespace nxctl

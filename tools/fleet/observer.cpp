#include "tools/fleet/observer.h"

#include <algorithm>
#include <charconv>
#include <random>

#include "nxapi/topics.h"
#include "tools/nxctl_json.h"

namespace fleet {
namespace {

using namespace std::chrono_literals;
namespace topics = nxapi::topics;

constexpr auto pause = 500ms; /**< between two attempts to connect */

std::string any(std::string_view below) {
    return topics::of_device("+", below);
}

/** Answers come where nobody else listens. */
std::string new_answer_topic() {
    std::random_device chance;
    return "vap-fleet/" + std::to_string(chance()) + "-" + std::to_string(chance()) + "/answer";
}

/** Takes a packet at a time, and more of them than the owner's loop would. */
void read_on(nxctl::Session &session, short ready) {
    constexpr int most = 64;
    session.work(ready);
    for (int i = 0; i < most; ++i) {
        pollfd more = session.wanted();
        if (poll(&more, 1, 0) <= 0 || (more.revents & POLLIN) == 0) {
            return;
        }
        session.work(more.revents);
    }
}

std::optional<Listener::Status> status_of(const std::string &payload, size_t broker) {
    const auto told = nxctl::parse_json(payload);
    const auto *online = told ? nxctl::member(*told, "online") : nullptr;
    const auto *since = told ? nxctl::member(*told, "since") : nullptr;
    if (online == nullptr || !online->is_boolean()) {
        return std::nullopt;
    }
    return Listener::Status{
        online->get<bool>(), since != nullptr && since->is_number() ? since->get<double>() : 0,
        static_cast<unsigned>(nxctl::whole_number(*told, "connection").value_or(0)), broker};
}

}  // namespace

Observer::Observer(const std::vector<std::string> &brokers, Listener &listener)
    : listener_(listener), answer_topic_(new_answer_topic()) {
    for (const std::string &url : brokers) {
        links_.emplace_back();
        nxapi::broker_fault(url, links_.back().address);
        connect(links_.size() - 1);
    }
    connect_all();
}

void Observer::connect_all() {
    const auto is_ready = [](const Link &link) { return link.session->is_ready(); };
    while (!std::ranges::all_of(links_, is_ready)) {
        std::vector<pollfd> ready = wanted();
        poll(ready.data(), ready.size(), 100);
        for (size_t i = 0; i < links_.size(); ++i) {
            read_on(*links_[i].session, ready[i].revents);
        }
    }
}

void Observer::connect(size_t broker) {
    Link &link = links_[broker];
    auto session = std::make_unique<nxctl::Session>(access_, link.address);
    session->on_message = [this, broker](nxctl::Received &message) { hear(broker, message); };
    session->subscribe({any(topics::status), any("up/+"), answer_topic_});
    link.session = std::move(session);
}

void Observer::lose(Link &link, const std::string &why) {
    link.session.reset();
    link.next_try = Clock::now() + pause;
    trouble_ = why;
}

void Observer::heed(size_t broker, bool heeded) {
    links_[broker].heeded = heeded;
    links_[broker].next_try = Clock::now();
}

std::vector<pollfd> Observer::wanted() const {
    std::vector<pollfd> all;
    for (const Link &link : links_) {
        all.push_back(link.session ? link.session->wanted() : pollfd{-1, 0, 0});
    }
    return all;
}

void Observer::take(const std::vector<pollfd> &ready) {
    for (size_t i = 0; i < links_.size(); ++i) {
        Link &link = links_[i];
        try {
            if (link.session) {
                read_on(*link.session, ready[i].revents);
            } else if (link.heeded && Clock::now() >= link.next_try) {
                connect(i);
            }
        } catch (const tools::Failure &why) {
            lose(link, why.what());
        }
    }
}

bool Observer::call(size_t number, size_t broker, const std::string &serial,
                    const std::string &target, const std::string &request) {
    Link &link = links_[broker];
    if (!link.session || !link.session->is_connected()) {
        return false;
    }
    try {
        const auto sent = link.session->publish(
            {.topic = topics::of_device(serial, std::string(topics::commands) + target),
             .payload = request,
             .response_topic = answer_topic_,
             .correlation = std::to_string(number)});
        return sent.has_value();
    } catch (const tools::Failure &why) {
        lose(link, why.what());
        return false;
    }
}

void Observer::hear(size_t broker, const nxctl::Received &message) {
    if (message.topic == answer_topic_) {
        size_t number = 0;
        const std::string &mark = message.correlation;
        const auto end = std::from_chars(mark.data(), mark.data() + mark.size(), number);
        if (end.ec == std::errc() && end.ptr == mark.data() + mark.size()) {
            listener_.on_answer(number, message);
        }
        return;
    }
    const std::string below = message.topic.substr(topics::root.size());
    const size_t slash = below.find('/');
    const std::string serial = below.substr(0, slash);
    const std::string what = slash == below.npos ? "" : below.substr(slash + 1);
    if (what == topics::status) {
        if (const auto status = status_of(message.payload, broker)) {
            listener_.on_status(serial, *status);
        }
    } else if (what.starts_with(topics::uploads) && !message.retained) {
        listener_.on_upload(serial, what.substr(topics::uploads.size()));
    }
}

}  // namespace fleet

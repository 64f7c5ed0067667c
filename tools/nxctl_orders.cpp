#include "tools/nxctl_orders.h"

#include <algorithm>
#include <random>

#include "nxapi/topics.h"
#include "tools/nxctl_commands.h"

namespace nxctl {
namespace topics = nxapi::topics;
namespace {

constexpr int refusal = 0x80; /**< the least reason of an acknowledgement that is one */

std::string random_bytes() {
    std::random_device chance;
    std::string bytes(16, '\0');
    for (char &byte : bytes) {
        byte = static_cast<char>(chance());
    }
    return bytes;
}

Clock::time_point after(double seconds) {
    return Clock::now() +
           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

std::string device(const Order &order) {
    return "device " + order.serial;
}

/** Why the agent's callback had no answer; it says no more than that. */
std::string why_refused(const Form &form) {
    if (form.target == topics::serial) {
        return "takes this text for no serial number";
    }
    if (find_command(form.target) == nullptr) {
        return "has no command " + form.target;
    }
    if (!form.request.empty() && !Json::accept(form.request)) {
        return "cannot read the request: it is no JSON";
    }
    return "has no answer to " + form.target +
           ": too many commands wait there, its memory is short, or the answer is too large";
}

/** What a "resp_code" other than 0 may mean. */
std::string why_unwilling(const std::string &target) {
    const Command *command = find_command(target);
    const bool known = command != nullptr && !command->fails_when.empty();
    return known ? "it says so when " + unmarked(command->fails_when) : "its memory may be short";
}

/** The "resp_code" of a text; 0 where there is none. */
int64_t resp_code(const std::string &payload) {
    const auto document = parse_json(payload);
    return document ? whole_number(*document, "resp_code").value_or(0) : 0;
}

}  // namespace

bool is_success(const std::string &target, const std::string &answer) {
    if (target == topics::serial) {
        return true;
    }
    const auto document = parse_json(answer);
    return document && whole_number(*document, "resp_code") == 0;
}

Orders::Orders(Brokers &brokers, Form form) : brokers_(brokers), form_(std::move(form)) {
    brokers_.on_message = [this](const Received &message) { take(message); };
    brokers_.on_acknowledged = [this](size_t broker, int identifier, int reason) {
        take_acknowledgement({broker, identifier}, reason);
    };
    brokers_.on_lost = [this](size_t broker) { take_loss(broker); };
}

void Orders::subscribe(const std::vector<std::string> &serials) {
    std::vector<std::string> below{std::string(topics::status),
                                   std::string(topics::responses) + form_.target};
    for (const std::string &kind : form_.until) {
        below.push_back(std::string(topics::uploads) + kind);
    }
    Filter filter;
    filter.serials = serials;
    brokers_.subscribe(topics_of(filter, below));
}

void Orders::run(const std::vector<std::string> &serials) {
    subscribe(serials);
    size_t next = 0;
    while (next < serials.size() || !active_.empty()) {
        while (next < serials.size() && active_.size() < form_.parallel) {
            start(serials[next++]);
        }
        auto soonest = Clock::time_point::max();
        for (const auto &[serial, order] : active_) {
            soonest = std::min(soonest, order.deadline);
        }
        if (!active_.empty()) {
            moved_ = false;
            brokers_.work([&] { return moved_; }, soonest);
            end_late();
        }
    }
}

void Orders::start(const std::string &serial) {
    Order &order = active_[serial];
    order.serial = serial;
    order.correlation = random_bytes();
    send(order);
}

/** Brokers that may have the device, the likeliest first: those that do not say that it is
 *  offline. */
std::vector<size_t> Orders::places_of(const Order &order) const {
    const Device &known = fleet_.device(order.serial);
    std::vector<size_t> places;
    for (size_t broker = 0; broker < brokers_.count(); ++broker) {
        if (known.presence_at(broker).online != false && !order.absent.contains(broker)) {
            places.push_back(broker);
        }
    }
    std::ranges::stable_sort(places, [&](size_t a, size_t b) {
        return known.presence_at(a).is_newer_than(known.presence_at(b));
    });
    return places;
}

void Orders::send(Order &order) {
    Sent message;
    message.topic = topics::of_device(order.serial, std::string(topics::commands) + form_.target);
    message.response_topic =
        topics::of_device(order.serial, std::string(topics::responses) + form_.target);
    message.payload = form_.request;
    message.correlation = order.correlation;
    message.expiry = std::chrono::seconds(static_cast<long>(form_.timeout) + 1);
    for (const size_t broker : places_of(order)) {
        if (const auto identifier = brokers_.publish(broker, message)) {
            order.receipt = {broker, *identifier};
            unacknowledged_[order.receipt] = order.serial;
            rest(order, Order::State::sent, form_.timeout);
            return;
        }
    }
    if (form_.waits) {
        rest(order, Order::State::waiting, form_.timeout);
    } else {
        end(order, unanswered, device(order) + " is not connected");
    }
}

void Orders::rest(Order &order, Order::State state, double seconds) {
    order.state = state;
    order.deadline = after(seconds);
    if (state == Order::State::waiting) {
        order.upload.reset();
    }
    moved_ = true;
}

void Orders::end(Order &order, int exit, const std::string &failure) {
    order.exit = exit;
    order.failure = failure;
    moved_ = true;
    on_end(order);
    active_.erase(active_.find(order.serial));
}

void Orders::take(const Received &message) {
    fleet_.take(message);
    const auto place = place_of(message.topic);
    const auto found = place ? active_.find(place->serial) : active_.end();
    if (found == active_.end()) {
        return;
    }
    Order &order = found->second;
    if (place->below == topics::status) {
        take_status(order, message.broker);
    } else if (place->below.starts_with(topics::uploads)) {
        take_upload(order, message);
    } else if (message.correlation == order.correlation) {
        take_answer(order, message);
    }
}

// A device that went away before it answered, or moved to another broker, may or may not
// have run the command: with --wait it gets it once more.
void Orders::take_status(Order &order, size_t broker) {
    const Device &known = fleet_.device(order.serial);
    const auto online = known.presence_at(broker).online;
    const bool is_asked = order.state == Order::State::sent && form_.waits;
    const bool is_there = order.receipt.first == broker;
    if (online == true) {
        order.absent.erase(broker);
    }
    if (online == true && (order.state == Order::State::waiting ||
                           (is_asked && !is_there && known.broker() == broker))) {
        send(order);
    } else if (online == false && is_asked && is_there) {
        rest(order, Order::State::waiting, form_.timeout);
    }
}

// The answer may still come: from a device that has moved on with it.
void Orders::take_loss(size_t broker) {
    for (auto &[serial, order] : active_) {
        if (form_.waits && order.state == Order::State::sent && order.receipt.first == broker) {
            rest(order, Order::State::waiting, form_.timeout);
        }
    }
}

void Orders::take_answer(Order &order, const Received &message) {
    if (order.answer) {
        return;
    }
    order.answer = message;
    on_answer(order);
    if (message.result == -1) {
        end(order, refused, device(order) + " " + why_refused(form_));
    } else if ((form_.checks || !form_.until.empty()) &&
               !is_success(form_.target, message.payload)) {
        end(order, unwilling,
            device(order) + " answers that it did not do it: " + why_unwilling(form_.target));
    } else if (form_.until.empty()) {
        end(order, done, "");
    } else if (order.upload) {
        take_upload(order, *order.upload);
    } else {
        rest(order, Order::State::following, form_.until_timeout);
    }
}

// An upload may come before the answer, though not before the command; only the identity
// that follows a restart comes behind both.
void Orders::take_upload(Order &order, const Received &message) {
    const bool is_identity = message.topic.ends_with(topics::identity);
    if (message.retained || !form_.is_mine(message) || order.state == Order::State::waiting ||
        (is_identity && !order.answer)) {
        return;
    }
    const Received upload = message;
    order.upload = upload;
    if (!order.answer) {
        return;
    }
    if (const int64_t code = resp_code(upload.payload); code != 0) {
        end(order, unwilling, device(order) + " reports the code " + std::to_string(code));
        return;
    }
    end(order, done, "");
}

void Orders::take_acknowledgement(const Receipt &receipt, int reason) {
    const auto sent = unacknowledged_.find(receipt);
    if (sent == unacknowledged_.end()) {
        return;
    }
    const auto found = active_.find(sent->second);
    unacknowledged_.erase(sent);
    if (reason == 0 || found == active_.end() || found->second.state != Order::State::sent ||
        found->second.receipt != receipt) {
        return;
    }
    Order &order = found->second;
    if (reason >= refusal) {
        end(order, tools::failed,
            "the broker does not let this console order " + device(order) + " (" +
                mosquitto_reason_string(reason) + ")");
    } else {  // nobody listens
        order.absent.insert(receipt.first);
        send(order);
    }
}

void Orders::end_late() {
    const auto now = Clock::now();
    std::vector<std::string> late;
    for (const auto &[serial, order] : active_) {
        if (order.deadline <= now) {
            late.push_back(serial);
        }
    }
    for (const std::string &serial : late) {
        Order &order = active_.at(serial);
        switch (order.state) {
            case Order::State::waiting:
                end(order, unanswered, device(order) + " is not connected");
                break;
            case Order::State::sent:
                end(order, unanswered, device(order) + " did not answer in time");
                break;
            case Order::State::following:
                end(order, unanswered,
                    device(order) + " answered, but its upload did not come in time");
                break;
        }
    }
}

}  // namespace nxctl

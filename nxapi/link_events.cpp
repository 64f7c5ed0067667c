/*
 * What the broker tells the link.
 */
#include <mqtt_protocol.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "nxapi/command.h"
#include "nxapi/link.h"
#include "nxapi/log.h"
#include "nxapi/mqtt_error.h"
#include "nxapi/topics.h"

namespace nxapi {
namespace {

using std::chrono::seconds;

/** Messages that are on their way at once, unless the broker wants fewer. */
constexpr uint16_t widest_window = 20;

/** Stands for a broker that wants no pings. */
constexpr seconds no_keepalive = std::chrono::hours(24 * 365);

/** The first of MQTT's reason codes that tell of a failure. */
constexpr int first_failure = 0x80;

}  // namespace

void Link::on_connected(int reason, const mosquitto_property *properties) {
    ++heard_;
    if (reason != MQTT_RC_SUCCESS) {
        why_down_ = mosquitto_reason_string(reason);
        return;
    }
    uint16_t keepalive = static_cast<uint16_t>(settings_.keepalive_s);
    mosquitto_property_read_int16(properties, MQTT_PROP_SERVER_KEEP_ALIVE, &keepalive, false);
    keepalive_ = keepalive == 0 ? no_keepalive : seconds(keepalive);
    uint16_t receive_maximum = widest_window;
    mosquitto_property_read_int16(properties, MQTT_PROP_RECEIVE_MAXIMUM, &receive_maximum, false);
    window_ = std::min(receive_maximum, widest_window);
    client_.stop_log();
    // Whoever sees the device online finds it listening: the broker takes these in order.
    if (const int result =
            client_.subscribe(topics::of_device(linked_serial_, topics::commands) + "+/+")) {
        lose(mqtt_error_text(result, errno));
        return;
    }
    publish_kept(topics::status, topics::presence(true, connection_, since_));
    publish_kept(topics::identity, identity_);
    if (binding_) {
        publish_kept(topics::binding, *binding_);
    }
    if (!gate_.open_socket(client_.socket())) {
        lose(std::strerror(errno));
        return;
    }
    state_ = State::up;  // not before: without memory for all this, the device tries anew
    expect_main_thread();
    up_since_ = Clock::now();
    refusal_said_ = false;
    std::ranges::fill(said_, std::string());
    answer_due_.reset();
    say(Level::notice, "connected to %s:%d as %s", route_.broker().host.c_str(),
        route_.broker().port, linked_serial_.c_str());
}

void Link::on_disconnected(int reason) {
    if (reason >= first_failure && why_down_.empty()) {
        reason_given_ = reason;
        why_down_ = mosquitto_reason_string(reason);
    }
}

void Link::on_message(const mosquitto_message &message, const mosquitto_property *properties) {
    ++heard_;
    const std::string prefix = topics::of_device(linked_serial_, topics::commands);
    const std::string_view topic(message.topic);
    if (!topic.starts_with(prefix)) {
        return;
    }
    if (message.retain) {
        troubles_.add(Trouble::retained, topic);
        return;
    }
    Command command = command_of(topic.substr(prefix.size()), properties);
    if (!command.response_topic.empty() &&
        !may_respond_on(command.response_topic, linked_serial_)) {
        troubles_.add(Trouble::redirected, command.response_topic);
        command.response_topic.clear();
    }
    const auto length = static_cast<size_t>(message.payloadlen);
    if (!inbox_.has_room(command.bytes() + length)) {
        troubles_.add(Trouble::refused, topic);
        outbox_.push(response_to(command, -1, {}));
        return;
    }
    command.request.assign(static_cast<const char *>(message.payload), length);
    inbox_.put(std::move(command));
}

void Link::on_acknowledged(int identifier, int reason) {
    ++heard_;
    outbox_.acknowledged(identifier);
    if (outbox_.waiting() == 0) {
        if (const size_t dropped = outbox_.take_dropped()) {
            troubles_.add(Trouble::dropped, "the oldest", dropped);
        }
    }
    if (reason >= first_failure && !refusal_said_) {
        refusal_said_ = true;
        say(Level::warning, "the broker refuses messages of %s (%s)", linked_serial_.c_str(),
            mosquitto_reason_string(reason));
    }
}

void Link::on_subscribed(int granted) {
    ++heard_;
    if (granted >= first_failure) {
        say(Level::warning, "the broker does not let %s receive commands (%s)",
            linked_serial_.c_str(), mosquitto_reason_string(granted));
    }
}

void Link::on_log(int level, const char *line) {
    // Of several, the first is nearest to the cause.
    if (first_problem_.empty() && (level == MOSQ_LOG_ERR || level == MOSQ_LOG_WARNING)) {
        first_problem_ = line;
    }
    say(Level::debug, "%s", line);
}

}  // namespace nxapi

#include "tools/nxctl_session.h"

#include <mqtt_protocol.h>
#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "virtual/nxapi/broker_address.h"
#include "virtual/nxapi/topics.h"

namespace nxctl {
namespace {

constexpr std::chrono::seconds connect_patience{10};
constexpr int keepalive_s = 60;
constexpr int first_failure = 0x80;

using Owned = std::unique_ptr<void, void (*)(void *)>;

Received received(const mosquitto_message &message, const mosquitto_property *properties) {
    Received out;
    out.topic = message.topic;
    out.payload.assign(static_cast<const char *>(message.payload),
                       static_cast<size_t>(message.payloadlen));
    out.retained = message.retain;
    void *data = nullptr;
    uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                       false) != nullptr) {
        const Owned owner(data, std::free);
        out.correlation.assign(static_cast<const char *>(data), length);
    }
    const mosquitto_property *at = properties;
    for (bool again = false; at != nullptr; again = true) {
        char *name = nullptr;
        char *value = nullptr;
        at = mosquitto_property_read_string_pair(at, MQTT_PROP_USER_PROPERTY, &name, &value, again);
        const Owned name_owner(name, std::free);
        const Owned value_owner(value, std::free);
        if (at != nullptr && std::strcmp(name, nxapi::topics::result_property) == 0) {
            std::from_chars(value, value + std::strlen(value), out.result);
        }
    }
    return out;
}

Session &session(void *self) {
    return *static_cast<Session *>(self);
}

const char *text_or_null(const std::string &text) {
    return text.empty() ? nullptr : text.c_str();
}

}  // namespace

void Session::set_callbacks() {
    mosquitto *mosq = mosq_.get();
    mosquitto_connect_v5_callback_set(
        mosq, [](mosquitto *, void *self, int reason, int, const mosquitto_property *) {
            session(self).connected_ = reason == MQTT_RC_SUCCESS;
            if (reason != MQTT_RC_SUCCESS) {
                session(self).refusal_ = mosquitto_reason_string(reason);
            }
        });
    mosquitto_subscribe_callback_set(mosq, [](mosquitto *, void *self, int, int count,
                                              const int *granted) {
        session(self).subscribed_ = true;
        if (const int worst = *std::max_element(granted, granted + count); worst >= first_failure) {
            session(self).refusal_ = mosquitto_reason_string(worst);
        }
    });
    mosquitto_message_v5_callback_set(mosq,
                                      [](mosquitto *, void *self, const mosquitto_message *message,
                                         const mosquitto_property *properties) {
                                          session(self).on_message(received(*message, properties));
                                      });
    mosquitto_publish_v5_callback_set(
        mosq, [](mosquitto *, void *self, int identifier, int reason, const mosquitto_property *) {
            session(self).on_acknowledged(identifier, reason);
        });
    mosquitto_log_callback_set(mosq, [](mosquitto *, void *self, int level, const char *line) {
        if (level == MOSQ_LOG_ERR) {
            session(self).last_problem_ = line;
        }
    });
}

void Session::set_tls(const Options &options) {
    if (mosquitto_tls_set(mosq_.get(), options.cafile.c_str(), nullptr,
                          text_or_null(options.certfile), text_or_null(options.keyfile),
                          nullptr) != MOSQ_ERR_SUCCESS) {
        throw Failure(
            "a mqtts:// broker needs --ca FILE, and --cert FILE and --key FILE together "
            "or not at all; all of them must be readable");
    }
}

Session::Session(const Options &options)
    : mosq_((mosquitto_lib_init(), mosquitto_new(nullptr, true, this)), mosquitto_destroy) {
    nxapi::BrokerAddress broker;
    std::string why;
    if (!nxapi::parse_broker(options.broker, broker, why)) {
        throw Failure(why);
    }
    address_ = broker.host + ":" + std::to_string(broker.port);
    mosquitto_int_option(mosq_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(mosq_.get(), MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_username_pw_set(mosq_.get(), text_or_null(options.user), getenv("NXCTL_PASSWORD"));
    set_callbacks();
    if (broker.tls) {
        set_tls(options);
    }
    if (const int result =
            mosquitto_connect(mosq_.get(), broker.host.c_str(), broker.port, keepalive_s)) {
        fail("cannot connect to", result);
    }
    if (!work([&] { return connected_; }, Clock::now() + connect_patience)) {
        throw Failure(address_ + " does not answer like a broker");
    }
}

void Session::fail(const std::string &what, int result) {
    const int error = errno;
    std::string reason = refusal_;
    if (reason.empty() && result == MOSQ_ERR_ERRNO) {
        reason = std::strerror(error);
    } else if (reason.empty() && result == MOSQ_ERR_EAI) {
        reason = gai_strerror(error);
    } else if (reason.empty()) {
        reason = mosquitto_strerror(result);
    }
    if (!last_problem_.empty()) {
        reason += ": " + last_problem_;
    }
    throw Failure(what + " " + address_ + " (" + reason + ")");
}

void Session::subscribe(const std::vector<std::string> &topics) {
    std::vector<char *> texts;
    for (const std::string &topic : topics) {
        texts.push_back(const_cast<char *>(topic.c_str()));
    }
    subscribed_ = false;
    mosquitto_subscribe_multiple(mosq_.get(), nullptr, static_cast<int>(texts.size()), texts.data(),
                                 1, 0, nullptr);
    if (!work([&] { return subscribed_; }, Clock::now() + connect_patience)) {
        throw Failure(address_ + " does not answer");
    }
    if (!refusal_.empty()) {
        throw Failure("the broker does not let this console listen (" + refusal_ + ")");
    }
}

int Session::publish(const Request &request) {
    mosquitto_property *properties = nullptr;
    mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC,
                                  request.response_topic.c_str());
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA,
                                  request.correlation.data(),
                                  static_cast<uint16_t>(request.correlation.size()));
    mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                 static_cast<uint32_t>(request.expiry.count()));
    int identifier = 0;
    const int result = mosquitto_publish_v5(mosq_.get(), &identifier, request.topic.c_str(),
                                            static_cast<int>(request.payload.size()),
                                            request.payload.data(), 1, false, properties);
    mosquitto_property_free_all(&properties);
    if (result != MOSQ_ERR_SUCCESS) {
        fail("cannot send the command to", result);
    }
    return identifier;
}

bool Session::work(const std::function<bool()> &done, Clock::time_point until) {
    while (!done()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
        if (left.count() <= 0) {
            return false;
        }
        const auto wait = std::min(left, std::chrono::milliseconds(1000));
        const int result = mosquitto_loop(mosq_.get(), static_cast<int>(wait.count()), 1);
        if (result != MOSQ_ERR_SUCCESS) {
            fail(connected_ ? "lost the connection to" : "cannot connect to", result);
        }
    }
    return true;
}

}  // namespace nxctl

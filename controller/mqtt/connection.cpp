#include "controller/mqtt/connection.h"

#include <mqtt_protocol.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "nxapi/mqtt_error.h"
#include "nxapi/topics.h"

namespace mqtt {
namespace {

namespace topics = nxapi::topics;
using Owned = std::unique_ptr<void, decltype(&std::free)>;

constexpr int keepalive_s = 30;
constexpr int loop_ms = 1000; /**< a message to send wakes the loop at once */
constexpr double first_pause_s = 0.2;
constexpr double longest_pause_s = 15;

const char *text_or_null(const std::string &text) {
    return text.empty() ? nullptr : text.c_str();
}

int result_of(const mosquitto_property *properties) {
    int result = 0;
    char *name = nullptr;
    char *value = nullptr;
    if (mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &value,
                                            false) != nullptr) {
        const Owned name_owner(name, std::free);
        const Owned value_owner(value, std::free);
        if (std::strcmp(name, topics::result_property) == 0) {
            std::from_chars(value, value + std::strlen(value), result);
        }
    }
    return result;
}

std::string correlation_of(const mosquitto_property *properties) {
    void *data = nullptr;
    uint16_t length = 0;
    if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                       false) == nullptr) {
        return {};
    }
    const Owned owner(data, std::free);
    return {static_cast<const char *>(data), length};
}

Connection &self(void *connection) {
    return *static_cast<Connection *>(connection);
}

}  // namespace

Connection::Connection(size_t place, nxapi::BrokerAddress broker, Access access, Events &events)
    : place_(place), broker_(std::move(broker)), access_(std::move(access)), events_(events) {
    make();
    thread_ = std::thread([this] { live(); });
}

Connection::~Connection() {
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
        if (client_) {
            mosquitto_disconnect_v5(client_.get(), MQTT_RC_NORMAL_DISCONNECTION, nullptr);
        }
    }
    wake_.notify_one();
    thread_.join();
}

/** A fresh one for each connection: what an old one could not send is not sent late. */
Connection::Client Connection::make() {
    Client client(mosquitto_new(nullptr, true, this),
                  [](mosquitto *old) { mosquitto_destroy(old); });
    if (!client) {
        throw std::runtime_error("no memory for a connection to a broker");
    }
    mosquitto_int_option(client.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_threaded_set(client.get(), true);
    mosquitto_username_pw_set(client.get(), text_or_null(access_.user),
                              text_or_null(access_.password));
    set_callbacks(client.get());
    if (broker_.tls) {
        const int result = mosquitto_tls_set(client.get(), text_or_null(access_.cafile), nullptr,
                                             text_or_null(access_.certfile),
                                             text_or_null(access_.keyfile), nullptr);
        if (result != MOSQ_ERR_SUCCESS) {
            throw std::runtime_error("TLS to " + broker_.host +
                                     " cannot be set up: " + nxapi::mqtt_error_text(result, errno));
        }
    }
    return client;
}

void Connection::set_callbacks(mosquitto *client) {
    mosquitto_connect_v5_callback_set(
        client, [](mosquitto *mosq, void *me, int reason, int, const mosquitto_property *) {
            if (reason != MQTT_RC_SUCCESS) {
                self(me).refusal_ = mosquitto_reason_string(reason);
                return;
            }
            self(me).subscribe(mosq);
        });
    mosquitto_subscribe_callback_set(
        client, [](mosquitto *, void *me, int, int count, const int *granted) {
            Connection &connection = self(me);
            if (std::any_of(granted, granted + count, [](int code) { return code >= 0x80; })) {
                connection.refusal_ = "the broker does not let this service listen";
            } else if (!connection.up_.exchange(true)) {
                connection.events_.on_link(connection.place_, true, "");
            }
        });
    mosquitto_message_v5_callback_set(
        client, [](mosquitto *, void *me, const mosquitto_message *message,
                   const mosquitto_property *properties) { self(me).take(*message, properties); });
    mosquitto_publish_v5_callback_set(
        client, [](mosquitto *, void *me, int identifier, int reason, const mosquitto_property *) {
            self(me).events_.on_acknowledged(self(me).place_, identifier, reason);
        });
    mosquitto_log_callback_set(client, [](mosquitto *, void *me, int level, const char *line) {
        if (level == MOSQ_LOG_ERR) {
            self(me).last_problem_ = line;
        }
    });
}

// What a broker retains for a large fleet would be cut by its limit on messages that wait,
// which holds for QoS 1 alone: so the retained ones come with QoS 0, the later ones with 1.
void Connection::subscribe(mosquitto *client) {
    const std::string answers = std::string(topics::root) + "+/rsp/" + access_.name + "/answer";
    std::string status = std::string(topics::root) + "+/status";
    std::string uploads = std::string(topics::root) + "+/up/#";
    for (const int qos : {0, 1}) {
        const int options =
            qos == 0 ? MQTT_SUB_OPT_SEND_RETAIN_ALWAYS : MQTT_SUB_OPT_SEND_RETAIN_NEVER;
        for (const std::string &topic : {answers, status, uploads}) {
            mosquitto_subscribe_v5(client, nullptr, topic.c_str(), qos, options, nullptr);
        }
    }
}

void Connection::take(const mosquitto_message &message, const mosquitto_property *properties) {
    const std::string_view topic = message.topic;
    const size_t end = topic.find('/', topics::root.size());
    if (!topic.starts_with(topics::root) || end == topic.npos) {
        return;
    }
    Message taken;
    taken.broker = place_;
    taken.serial = topic.substr(topics::root.size(), end - topics::root.size());
    taken.below = topic.substr(end + 1);
    taken.payload.assign(static_cast<const char *>(message.payload),
                         static_cast<size_t>(message.payloadlen));
    if (taken.below.starts_with(topics::responses)) {
        taken.correlation = correlation_of(properties);
        taken.result = result_of(properties);
    }
    events_.on_message(std::move(taken));
}

bool Connection::send(const Order &order, int &identifier) {
    const std::lock_guard lock(mutex_);
    if (!client_ || !up_) {
        return false;
    }
    mosquitto_property *properties = nullptr;
    const std::string answer =
        topics::of_device(order.serial, std::string(topics::responses) + access_.name + "/answer");
    mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC, answer.c_str());
    mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, order.correlation.data(),
                                  static_cast<uint16_t>(order.correlation.size()));
    mosquitto_property_add_int32(&properties, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL,
                                 static_cast<uint32_t>(order.expiry_s));
    const std::string topic =
        topics::of_device(order.serial, std::string(topics::commands) + order.target);
    const int result = mosquitto_publish_v5(client_.get(), &identifier, topic.c_str(),
                                            static_cast<int>(order.payload.size()),
                                            order.payload.data(), 1, false, properties);
    mosquitto_property_free_all(&properties);
    return result == MOSQ_ERR_SUCCESS;
}

void Connection::clear_retained(const std::string &serial) {
    const std::lock_guard lock(mutex_);
    if (!client_) {
        return;
    }
    for (const std::string_view below : {topics::status, topics::identity, topics::binding}) {
        mosquitto_publish(client_.get(), nullptr, topics::of_device(serial, below).c_str(), 0,
                          nullptr, 1, true);
    }
}

/** Connects and works until the connection ends; why it did. */
int Connection::stay(const Client &client) {
    errno = 0;
    int result =
        mosquitto_connect_async(client.get(), broker_.host.c_str(), broker_.port, keepalive_s);
    while (result <= MOSQ_ERR_SUCCESS && refusal_.empty() && !ends_) {
        result = mosquitto_loop(client.get(), loop_ms, 1);
    }
    return result;
}

void Connection::live() {
    double wait = first_pause_s;
    std::string told;
    do {
        const Client client = make();
        refusal_.clear();
        last_problem_.clear();
        {
            const std::lock_guard lock(mutex_);
            if (ends_) {
                return;
            }
            client_ = client;
        }
        const int result = stay(client);
        const int error = errno;
        {
            const std::lock_guard lock(mutex_);
            client_.reset();
        }
        std::string why = !refusal_.empty() ? refusal_ : nxapi::mqtt_error_text(result, error);
        if (broker_.tls && refusal_.empty() && !last_problem_.empty()) {
            why = last_problem_;
        }
        const bool was_up = up_.exchange(false);
        if (was_up || why != told) {
            events_.on_link(place_, false, why);
            told = why;
        }
        wait = was_up ? first_pause_s : std::min(2 * wait, longest_pause_s);
    } while (pause(wait));
}

/** False when the service ends. */
bool Connection::pause(double seconds) {
    std::unique_lock lock(mutex_);
    return !wake_.wait_for(lock, std::chrono::duration<double>(seconds),
                           [this] { return ends_.load(); });
}

}  // namespace mqtt

/**
 * Processes of a test or a benchmark, and a console that speaks to its broker.
 */
#ifndef TESTS_SUPPORT_PROCESSES_H
#define TESTS_SUPPORT_PROCESSES_H

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/temp_folder.h"
#include "tools/processes.h"

namespace test {

using tools::Broker;
using tools::Child;
using tools::is_listening;
using tools::Listener;
using tools::loopback;
using tools::patience;
using tools::TempFolder;
using Clock = std::chrono::steady_clock;

/** A message that the console got. */
struct Received {
    std::string topic;
    std::string payload;
    bool retained = false;
    std::string correlation;
    std::string result; /**< the user property of this name */
};

/** PEM files of a TLS client. */
struct Credentials {
    std::string cafile, certfile, keyfile;
};

/** An MQTT client that works only while `loop` is called. */
class Console {
  public:
    explicit Console(const Broker &broker, const Credentials &credentials = {},
                     const std::string &topic = "norvex/v1/#")
        : mosq_(mosquitto_new(nullptr, true, this), mosquitto_destroy) {
        if (!credentials.cafile.empty()) {
            mosquitto_tls_set(mosq_.get(), credentials.cafile.c_str(), nullptr,
                              credentials.certfile.c_str(), credentials.keyfile.c_str(), nullptr);
        }
        mosquitto_int_option(mosq_.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
        mosquitto_int_option(mosq_.get(), MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_message_v5_callback_set(mosq_.get(), on_message);
        mosquitto_subscribe_callback_set(mosq_.get(),
                                         [](mosquitto *, void *self, int, int, const int *) {
                                             static_cast<Console *>(self)->subscribed_ = true;
                                         });
        if (mosquitto_connect(mosq_.get(), "127.0.0.1", broker.port(), 60) != MOSQ_ERR_SUCCESS) {
            throw std::runtime_error("the console cannot connect");
        }
        mosquitto_subscribe(mosq_.get(), nullptr, topic.c_str(), 1);
        for (const auto limit = Clock::now() + patience; !subscribed_ && Clock::now() < limit;) {
            loop();
        }
    }

    void loop(int ms = 5) { mosquitto_loop(mosq_.get(), ms, 1); }

    /** Publishes a command; both properties only where they are given. */
    void publish(const std::string &topic, const std::string &payload,
                 const std::string &response_topic = "", const std::string &correlation = "",
                 bool retain = false) {
        mosquitto_property *properties = nullptr;
        if (!response_topic.empty()) {
            mosquitto_property_add_string(&properties, MQTT_PROP_RESPONSE_TOPIC,
                                          response_topic.c_str());
        }
        if (!correlation.empty()) {
            mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA,
                                          correlation.data(),
                                          static_cast<uint16_t>(correlation.size()));
        }
        mosquitto_publish_v5(mosq_.get(), nullptr, topic.c_str(), static_cast<int>(payload.size()),
                             payload.data(), 1, retain, properties);
        mosquitto_property_free_all(&properties);
    }

    /** Everything so far, in its order. */
    std::vector<Received> received;

    /** Payloads so far on a topic. */
    std::vector<std::string> on(const std::string &topic) const {
        std::vector<std::string> payloads;
        for (const Received &message : received) {
            if (message.topic == topic) {
                payloads.push_back(message.payload);
            }
        }
        return payloads;
    }

    /** The last message on a topic; an empty one when none came. */
    Received last(const std::string &topic) const {
        Received found;
        for (const Received &message : received) {
            if (message.topic == topic) {
                found = message;
            }
        }
        return found;
    }

  private:
    static void on_message(mosquitto *, void *self, const mosquitto_message *message,
                           const mosquitto_property *properties) {
        Received received;
        received.topic = message->topic;
        received.payload.assign(static_cast<const char *>(message->payload),
                                static_cast<size_t>(message->payloadlen));
        received.retained = message->retain;
        void *data = nullptr;
        uint16_t length = 0;
        if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &data, &length,
                                           false) != nullptr) {
            received.correlation.assign(static_cast<const char *>(data), length);
            free(data);
        }
        char *name = nullptr;
        char *value = nullptr;
        if (mosquitto_property_read_string_pair(properties, MQTT_PROP_USER_PROPERTY, &name, &value,
                                                false) != nullptr) {
            received.result = value;
            free(name);
            free(value);
        }
        static_cast<Console *>(self)->received.push_back(received);
    }

    std::unique_ptr<mosquitto, void (*)(mosquitto *)> mosq_;
    bool subscribed_ = false;
};

}  // namespace test

#endif

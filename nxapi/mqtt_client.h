/**
 * libmosquitto's client, with the habits of version 2.0.11 that a daemon cannot
 * live with put right.
 */
#ifndef NXAPI_MQTT_CLIENT_H
#define NXAPI_MQTT_CLIENT_H

#include <mosquitto.h>

#include <memory>
#include <string>

#include "nxapi/outbox.h"
#include "nxapi/settings.h"

namespace nxapi {

/** Who hears what the client has to tell; `context` of the callbacks. They run
 *  inside `read`, `write` and `ping`. */
struct MqttEvents {
    virtual void on_connected(int reason, const mosquitto_property *properties) = 0;
    virtual void on_disconnected(int reason) = 0;
    virtual void on_message(const mosquitto_message &message,
                            const mosquitto_property *properties) = 0;
    virtual void on_acknowledged(int identifier, int reason) = 0;
    virtual void on_subscribed(int granted) = 0;
    virtual void on_log(int level, const char *line) = 0;

  protected:
    ~MqttEvents() = default;
};

/** One connection after another. Calls are not locked: the owner lets one thread in
 *  at a time. A result is an MOSQ_ERR number, 0 for success. */
class MqttClient {
  public:
    /** The process's handling of SIGPIPE stays as it was. */
    explicit MqttClient(MqttEvents &events);

    bool exists() const { return mosq_ != nullptr; }

    /** Where to connect, and what the broker says when the device is gone. */
    struct Target {
        const BrokerAddress &broker;
        const std::string &address; /**< of the broker, or its name */
        std::string id;
        std::string will_topic;
        std::string will;
    };

    /** Starts to connect, with everything of a former connection forgotten. Blocks when
     *  a name is to be looked up. `why` gets a sentence unless the result is 0 or below:
     *  below means that TCP is still on its way. */
    int connect(const Settings &settings, const Target &target, std::string &why);

    /** Leaves in such a way that the broker publishes the last will, if it can. */
    void leave();

    /** Closes what is open and frees what the connection held. */
    void forget();

    int socket() const { return mosquitto_socket(mosq_.get()); }
    bool wants_write() const { return mosquitto_want_write(mosq_.get()); }
    int read() { return mosquitto_loop_read(mosq_.get(), 1); }
    int write() { return mosquitto_loop_write(mosq_.get(), 1); }
    int ping() { return mosquitto_loop_misc(mosq_.get()); }

    /** No command that somebody retained is delivered: neither at once, nor when it
     *  is published, for it then arrives marked as retained. */
    int subscribe(const std::string &topic);

    int publish(const std::string &topic, const Message &message, bool retain, int &identifier);

    /** libmosquitto formats every log line as long as somebody listens, so it is heard
     *  only while a connection is made. */
    void stop_log() { mosquitto_log_callback_set(mosq_.get(), nullptr); }

  private:
    struct Deleter {
        void operator()(mosquitto *mosq) const { mosquitto_destroy(mosq); }
    };

    int configure(const Settings &settings, const Target &target);
    int bound_packets();
    int renew(const char *id);

    MqttEvents &events_;
    std::unique_ptr<mosquitto, Deleter> mosq_;
};

}  // namespace nxapi

#endif

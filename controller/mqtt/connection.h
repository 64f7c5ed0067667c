/**
 * A connection to one broker of devices, kept up by a thread of its own.
 */
#ifndef CONTROLLER_MQTT_CONNECTION_H
#define CONTROLLER_MQTT_CONNECTION_H

#include <mosquitto.h>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "nxapi/broker_address.h"

namespace mqtt {

/** Who the service is at its brokers. */
struct Access {
    std::string name = "controller"; /**< answers come to rsp/<name>/answer */
    std::string user, password;
    std::string cafile, certfile, keyfile; /**< PEM */
};

/** A message of a device. */
struct Message {
    size_t broker = 0; /**< place in the list */
    std::string serial;
    std::string below; /**< the topic below the device: "status", "up/alarm", ... */
    std::string payload;
    std::string correlation;
    int result = 0; /**< of the agent's callback, in an answer */
};

/** What a command is sent with. */
struct Order {
    std::string serial;
    std::string target; /**< "<family>/<slot>" */
    std::string payload;
    std::string correlation;
    int expiry_s = 0; /**< afterwards the broker delivers it no more */
};

/** Told on the connection's thread. */
struct Events {
    virtual void on_message(Message message) = 0;
    virtual void on_link(size_t broker, bool up, std::string why) = 0;
    /** The broker took a command, or nobody is there to take it (`reason` 0x10 and above). */
    virtual void on_acknowledged(size_t broker, int identifier, int reason) = 0;

  protected:
    ~Events() = default;
};

class Connection {
  public:
    /** Throws std::runtime_error when a file of `access` cannot be used. */
    Connection(size_t place, nxapi::BrokerAddress broker, Access access, Events &events);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    /** Sends a command; the identifier of its acknowledgement, none while the broker is
     *  away or refuses its size. Any thread. */
    bool send(const Order &order, int &identifier);

    /** Takes back what a device that is gone left retained. Any thread. */
    void clear_retained(const std::string &serial);

  private:
    using Client = std::shared_ptr<mosquitto>;

    Client make();
    void set_callbacks(mosquitto *client);
    void live();
    int stay(const Client &client);
    bool pause(double seconds);
    void subscribe(mosquitto *client);
    void take(const mosquitto_message &message, const mosquitto_property *properties);

    const size_t place_;
    const nxapi::BrokerAddress broker_;
    const Access access_;
    Events &events_;
    std::mutex mutex_; /**< of what stands below */
    std::condition_variable wake_;
    Client client_; /**< null while there is no connection */
    std::atomic<bool> ends_{false};
    std::atomic<bool> up_{false};
    std::string refusal_; /**< the connection's thread alone, as `last_problem_` */
    std::string last_problem_;
    std::thread thread_;
};

}  // namespace mqtt

#endif

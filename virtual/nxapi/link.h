/**
 * The device's link to the broker: one thread that connects, for ever, and keeps
 * the connection; everybody else only leaves messages.
 */
#ifndef VIRTUAL_NXAPI_LINK_H
#define VIRTUAL_NXAPI_LINK_H

#include <pthread.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "virtual/nxapi/backoff.h"
#include "virtual/nxapi/event.h"
#include "virtual/nxapi/inbox.h"
#include "virtual/nxapi/mqtt_client.h"
#include "virtual/nxapi/outbox.h"
#include "virtual/nxapi/settings.h"

namespace nxapi {

class Link final : private MqttEvents {
  public:
    /** Both outlive the link. */
    Link(const Settings &settings, Inbox &inbox);
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    /** Ends the thread; the broker tells the others that the device is gone. */
    ~Link();

    /** Starts the thread, which waits for a serial number. False: the system has no
     *  descriptor, memory or thread left. */
    bool start();

    /** The device's serial number, fit for a topic, and its identity document. A
     *  serial number other than before makes the link start anew under it, once what
     *  was sent under the old one is through. */
    void introduce(const std::string &serial, std::string identity);

    /** The device's binding document. */
    void bind(std::string binding);

    /** Sends a message, or keeps it until it can be sent. False when it is too large
     *  to be kept. Any thread; does not wait for the network. */
    bool send(Message message);

    /** True while the broker accepts the device. */
    bool is_up();

  private:
    using Clock = std::chrono::steady_clock;
    using Held = std::unique_lock<std::mutex>;
    enum class State { down, connecting, up, leaving };

    static void *run_thread(void *self);
    void run();

    // On the network thread. The lock is held, but for the waits of the first three.
    void connect(Held &held);
    void serve(Held &held);
    void rest(Held &held);
    void sum_up();
    void progress(short ready);
    void handle_connecting(short ready);
    void receive();
    void keep_alive();
    void leave_when_done();
    short wanted_events() const;
    int wait_ms() const;
    bool is_retired() const { return serial_ != linked_serial_; }

    // On any thread, the lock held.
    void write_from_here();
    void pump();
    void flush();
    void publish_kept(std::string_view below, std::string_view text);
    void lose(std::string why);
    bool is_linked() const { return state_ == State::up || state_ == State::leaving; }
    Clock::time_point ping_due() const;

    void on_connected(int reason, const mosquitto_property *properties) override;
    void on_disconnected(int reason) override;
    void on_message(const mosquitto_message &message,
                    const mosquitto_property *properties) override;
    void on_acknowledged(int identifier, int reason) override;
    void on_subscribed(int granted) override;
    void on_log(int level, const char *line) override;

    const Settings &settings_;
    Inbox &inbox_;
    Event wake_;
    pthread_t thread_{};
    bool runs_ = false;

    std::mutex lock_; /**< guards everything below */
    Backoff backoff_;
    MqttClient client_;
    Outbox outbox_;
    State state_ = State::down;
    bool stopping_ = false;
    std::string serial_;        /**< the device's */
    std::string linked_serial_; /**< the one of the connection */
    std::string identity_;
    std::optional<std::string> binding_;
    bool tcp_pending_ = false;
    size_t window_ = 0; /**< messages that may be on their way */
    std::chrono::seconds keepalive_{0};
    Clock::time_point last_in_;
    Clock::time_point last_out_;
    Clock::time_point up_since_;
    Clock::time_point deadline_; /**< of connecting, or of leaving */
    std::string why_down_;       /**< of this connection; empty: on purpose */
    std::string last_problem_;   /**< what libmosquitto logged last */
    std::string said_;           /**< the last reason that was given to the user */
    bool refusal_said_ = false;
};

}  // namespace nxapi

#endif

/**
 * The device's link to the broker. A thread of its own makes connections, for ever, and
 * keeps time; while one is up, the agent's main thread reads it and everybody writes
 * what he has to send.
 */
#ifndef NXAPI_LINK_H
#define NXAPI_LINK_H

#include <pthread.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "nxapi/alarm_clock.h"
#include "nxapi/backoff.h"
#include "nxapi/event.h"
#include "nxapi/gate.h"
#include "nxapi/inbox.h"
#include "nxapi/mqtt_client.h"
#include "nxapi/outbox.h"
#include "nxapi/route.h"
#include "nxapi/settings.h"
#include "nxapi/trouble.h"

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

    /** Readable while `begin_turn` has something to do; -1 when there is no descriptor. */
    int fd() const { return gate_.fd(); }

    /** The main thread is here: reads what the broker has sent, and leaves the commands
     *  among it in the inbox. From here to `end_turn` the network thread reads in its
     *  place, once that takes long. */
    void begin_turn();

    /** The main thread goes: what is still to be written is. */
    void end_turn();

    /** Sends a message, or keeps it until it can be sent. False when it is too large
     *  to be kept. Any thread; does not wait for the network. */
    bool send(Message message);

    /** True while the broker accepts the device. */
    bool is_up();

    /** Says of a trouble that it happened to `what`, and the rest in time. Any thread. */
    void complain(Trouble trouble, std::string_view what);

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
    void look_for_main_thread();
    void handle_connecting(short ready);
    void receive();
    void keep_alive();
    void leave_when_done();
    short wanted_events() const;
    int wait_ms() const;
    bool is_retired() const { return serial_ != linked_serial_; }

    // On any thread, the lock held.
    void write_from_here();
    void expect_main_thread();
    void pump();
    void flush();
    void publish_kept(std::string_view below, std::string_view text);
    void lose(std::string why);
    std::string rival() const;
    bool is_linked() const { return state_ == State::up || state_ == State::leaving; }
    Clock::time_point ping_due() const;
    Clock::time_point next_look() const;

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
    AlarmClock patience_; /**< runs out when the main thread should have been here */
    Gate gate_;
    pthread_t thread_{};
    bool runs_ = false;

    std::mutex lock_; /**< guards everything below */
    Backoff backoff_;
    Route route_;
    MqttClient client_;
    Outbox outbox_;
    State state_ = State::down;
    bool stopping_ = false;
    std::string serial_;        /**< the device's */
    std::string linked_serial_; /**< the one of the connection */
    std::string identity_;
    std::optional<std::string> binding_;
    bool tcp_pending_ = false;
    bool standing_in_ = false;  /**< the network thread reads, too */
    bool is_in_turn_ = false;   /**< the main thread is */
    bool is_expected_ = false;  /**< `patience_` runs */
    unsigned turns_ = 0;        /**< that the main thread has ended */
    unsigned turns_before_ = 0; /**< the same when `patience_` began to run */
    size_t window_ = 0;         /**< messages that may be on their way */
    std::chrono::seconds keepalive_{0};
    unsigned heard_ = 0;      /**< counts what the broker told */
    unsigned connection_ = 0; /**< grows with each attempt */
    double since_ = 0;        /**< when it began, seconds since 1970 */
    Clock::time_point last_in_;
    Clock::time_point last_out_;
    std::optional<Clock::time_point> answer_due_; /**< to a ping */
    Clock::time_point up_since_;
    Clock::time_point deadline_;    /**< of connecting, or of leaving */
    std::string why_down_;          /**< of this connection; empty: on purpose */
    std::string first_problem_;     /**< what libmosquitto complained of first, while connecting */
    std::vector<std::string> said_; /**< the last reasons given to the user, by broker */
    bool refusal_said_ = false;
    int reason_given_ = 0; /**< by the broker, which ended this connection with it */
    int short_lives_ = 0;  /**< connections in a row that ended soon, without a reason */
    Troubles troubles_;
};

}  // namespace nxapi

#endif

/**
 * The devices: hears what they tell, asks them on a schedule, keeps what they answer.
 */
#ifndef CONTROLLER_FLEET_FLEET_H
#define CONTROLLER_FLEET_FLEET_H

#include <map>
#include <random>
#include <string>

#include "controller/fleet/asker.h"
#include "controller/fleet/device.h"
#include "controller/fleet/feed.h"
#include "controller/mqtt/connection.h"
#include "controller/store/database.h"

namespace fleet {

/** Seconds between two questions for a report, in the order of `reports`; 0: never. */
using Schedule = std::array<int, reports.size()>;

/** Seconds of a steady clock, and since 1970. */
double steady_now();
long long wall_now();

/** One thread: that which calls it. */
class Fleet {
  public:
    using Send = std::function<bool(size_t broker, const mqtt::Order &order, int &identifier)>;

    /** Runs a call on the fleet's thread; may be used from any. */
    using Post = std::function<void(std::function<void()>)>;

    /** Takes the devices that the database knows. */
    Fleet(store::Database &database, Feed &feed, Send send, Post post, const Schedule &schedule);

    // What the brokers tell.
    void on_message(const mqtt::Message &message);
    void on_link(size_t broker, bool up);
    void on_acknowledged(size_t broker, int identifier, int reason) {
        asker_.acknowledged(broker, identifier, reason, steady_now());
    }

    /** Asks for reports that are due, ends questions without an answer. Several times a
     *  second. */
    void tick();

    /** Writes which devices were seen. Now and then. */
    void keep_seen();

    /** Sends a command to a device when those before are done. */
    void ask(const std::string &serial, Question question, bool urgent = false);
    size_t waiting(const std::string &serial) const { return asker_.waiting(serial); }

    const std::map<std::string, Device> &devices() const { return devices_; }
    const Device *find(const std::string &serial) const;

    /** Changes what people edit; the version grows, and the table gets it. */
    void edit(const std::string &serial, const std::function<void(Device &)> &change);

    /** Shows how far a device is from its site's configuration; tells it when that changed. */
    void show_config(const std::string &serial, const std::string &state, const std::string &reason,
                     const Json &differences);

    /** Sets members of the binding that a device told when its agent started: what became of
     *  it since is told by nobody. */
    void show_binding(const std::string &serial, const Json &members);

    /** Forgets a device that is not online; its table rows too. */
    void forget(const std::string &serial);

    /** Writes the present row of a device, as a job of the database. */
    void keep(Device &device);

    /** Asks for a report as soon as possible. */
    void refresh(const std::string &serial, std::string_view report);

    /** What happens to a device: "online", "offline", "unknown", and the kinds of uploads
     *  with their text. */
    std::function<void(const std::string &serial, const std::string &what, const std::string &text)>
        on_change = [](const auto &, const auto &, const auto &) {};

    Feed &feed() { return feed_; }
    size_t online() const { return online_; }

  private:
    Device &device_of(const std::string &serial);
    void take_status(Device &device, const mqtt::Message &message);
    void take_upload(Device &device, const std::string &kind, const std::string &text);
    void set_state(Device &device, State state);
    void ask_report(Device &device, size_t index);
    void keep_answer(const std::string &serial, const Report &report, const std::string &text);
    void keep_status(Device &device, const Json &answer);
    void keep_stations(Device &device, const Json &answer);
    void add_figures(Device &device, const Json &figures);
    void keep_alarms(const std::string &serial, const Json &upload);
    void keep_system_log(const std::string &serial, const Json &upload);
    double jitter(double seconds) { return std::uniform_real_distribution<>(0, seconds)(chance_); }

    store::Database &database_;
    Feed &feed_;
    Send send_;
    Post post_;
    Schedule schedule_;
    Asker asker_;
    std::map<std::string, Device> devices_;
    size_t online_ = 0;
    std::mt19937 chance_{std::random_device{}()};
};

}  // namespace fleet

#endif

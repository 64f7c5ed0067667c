/* Message bus and the topology kernel module behind it: platform/holymsg.h. */
#include "platform/holymsg.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <thread>

#include "virtual/device/effect.h"
#include "virtual/device/machine.h"
#include "virtual/hardware/equipment.h"

namespace vap {
namespace {

constexpr const char *module_topic = "net_topo.to_kernel";
constexpr const char *event_topic = "net_topo.server_port.from_kernel";
constexpr int server_port_request = 4;
constexpr int64_t answer_wait_ns = 3'000'000'000;

struct Subscription {
    std::string topic;
    holymsg_callback callback;
    void *user;
};

struct Message {
    std::string topic;
    std::string data;
};

/** Bus of the current device. */
struct Bus {
    std::mutex mutex;
    std::condition_variable changed;
    std::thread thread;
    bool running = false;
    std::vector<Subscription> subscriptions;
    std::deque<Message> queue; /**< the first one is being delivered */

    bool on_own_thread() const { return std::this_thread::get_id() == thread.get_id(); }
};

Bus &bus() {
    static Bus &one = *new Bus;  // outlives every thread of the process
    return one;
}

void deliver(const Message &message, const std::vector<Subscription> &subscriptions) {
    const Outside outside;
    for (const Subscription &subscription : subscriptions) {
        if (subscription.topic == message.topic) {
            subscription.callback(message.topic.c_str(), message.data.c_str(),
                                  static_cast<int>(message.data.size()), subscription.user);
        }
    }
}

void run_bus() {
    Bus &all = bus();
    std::unique_lock lock(all.mutex);
    for (;;) {
        all.changed.wait(lock, [&] { return !all.running || !all.queue.empty(); });
        if (!all.running) {
            return;
        }
        const Message message = all.queue.front();
        const std::vector<Subscription> subscriptions = all.subscriptions;
        lock.unlock();
        deliver(message, subscriptions);
        lock.lock();
        all.queue.pop_front();
        all.changed.notify_all();
        end_work();
    }
}

/** Queues a message for its subscribers, for the first one of whom the bus's thread
 *  starts; false when the bus does not run or its thread cannot. */
bool send(const std::string &topic, const std::string &data) {
    Bus &all = bus();
    const std::lock_guard lock(all.mutex);
    const bool heard = std::ranges::find(all.subscriptions, topic, &Subscription::topic) !=
                       all.subscriptions.end();
    if (!all.running || !heard) {
        return all.running;
    }
    if (!all.thread.joinable() && !start_thread(all.thread, "bus", run_bus)) {
        return false;
    }
    begin_work();
    all.queue.push_back({topic, data});
    all.changed.notify_all();
    return true;
}

/** Arguments of a published message in the journal: for the kernel module its
 *  command code and text, else the text; bytes that are no text as hex. */
Json message_args(const char *topic, const void *data, int length) {
    Json args = Json::array({text_arg(topic)});
    std::string_view rest(static_cast<const char *>(data), static_cast<size_t>(length));
    int32_t code = 0;
    if (args[0] == module_topic && rest.size() >= sizeof code) {
        memcpy(&code, data, sizeof code);
        args.push_back(code);
        rest.remove_prefix(sizeof code);
        if (rest.empty()) {
            return args;
        }
    }
    const bool text = rest.find('\0') == rest.size() - 1;
    args.push_back(text ? text_arg(rest.data()) : bytes_arg(rest.data(), rest.size()));
    return args;
}

bool sendable(const char *topic, const void *data, int length) {
    return topic != nullptr && data != nullptr && length > 0;
}

/** The module's answer to a request; null when there is none. */
cJSON *module_answer(const char *topic, const void *data, int length) {
    int32_t code = 0;
    if (strcmp(topic, module_topic) != 0 || length != sizeof code) {
        return nullptr;
    }
    memcpy(&code, data, sizeof code);
    const Topology topology = equipment_now()->topology;
    if (code != server_port_request || topology.silent) {
        return nullptr;
    }
    Json answer;
    answer["data"] = topology.text();
    return cJSON_Parse(answer.dump().c_str());
}

}  // namespace

std::string Topology::text() const {
    if (data) {
        return *data;
    }
    Json text = Json::object();
    if (port) {
        text["port"] = *port;
    }
    if (if_name) {
        text["if_name"] = *if_name;
    }
    return text.dump();
}

void announce_topology(const Topology &topology) {
    if (!topology.silent) {
        send(event_topic, topology.text());
    }
}

void bus_event(const std::string &topic, const std::string &text) {
    const Inside inside;
    if (!send(topic, text)) {
        throw std::runtime_error("the message bus does not run");
    }
    settle_bus();
}

void settle_bus() {
    Bus &all = bus();
    std::unique_lock lock(all.mutex);
    if (!all.on_own_thread()) {
        all.changed.wait(lock, [&] { return !all.running || all.queue.empty(); });
    }
}

void stop_bus() {
    Bus &all = bus();
    {
        const std::lock_guard lock(all.mutex);
        all.running = false;
        all.changed.notify_all();
    }
    if (all.thread.joinable()) {
        all.thread.join();
    }
    all.thread = {};
    for (; !all.queue.empty(); all.queue.pop_front()) {
        end_work();
    }
    all.subscriptions.clear();
}

}  // namespace vap

using namespace vap;

extern "C" {

void holymsg_run_async(void) {
    effect("holymsg_run_async", Json::array(), -1, [] {
        Bus &all = bus();
        const std::lock_guard lock(all.mutex);
        all.running = true;
        return 0;
    });
}

int holymsg_subscribe(const char *topic, holymsg_callback callback, void *user) {
    return effect("holymsg_subscribe", Json::array({text_arg(topic)}), -1, [&] {
        if (topic == nullptr || callback == nullptr) {
            return -1;
        }
        Bus &all = bus();
        const std::lock_guard lock(all.mutex);
        all.subscriptions.push_back({topic, callback, user});
        return 0;
    });
}

int holymsg_publish(const char *topic, const void *data, int length) {
    if (!sendable(topic, data, length)) {
        return refuse("holymsg_publish", Json::array({text_arg(topic), nullptr, length}), -1);
    }
    return effect("holymsg_publish", message_args(topic, data, length), -1, [&] {
        std::string text(static_cast<const char *>(data), static_cast<size_t>(length));
        if (text.back() == '\0') {
            text.pop_back();
        }
        return send(topic, text) ? 0 : -1;
    });
}

int holymsg_publish_and_respond(const char *topic, const void *data, int length, cJSON **answer) {
    constexpr const char *op = "holymsg_publish_and_respond";
    if (!sendable(topic, data, length) || answer == nullptr) {
        return refuse(op, Json::array({text_arg(topic), nullptr, length}), 0);
    }
    cJSON *found = nullptr;
    const int result = effect(op, message_args(topic, data, length), 0, [&] {
        found = module_answer(topic, data, length);
        return found != nullptr ? 1 : 0;
    });
    if (found == nullptr) {
        if (std::shared_ptr<Machine> device = machine()) {
            Clock &clock = device->clock;
            device.reset();  // the sleep may outlast it
            clock.sleep_ns(answer_wait_ns);
        }
        return result;
    }
    *answer = found;
    return result;
}

}  // extern "C"

/**
 * One command for one device or for many: sent, answered, completed.
 */
#ifndef TOOLS_NXCTL_ORDERS_H
#define TOOLS_NXCTL_ORDERS_H

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/nxctl_fleet.h"

namespace nxctl {

/** What all devices are told, and when that is done. */
struct Form {
    std::string target; /**< "<family>/<slot>", or "system/serial" */
    std::string request;
    double timeout = 10;            /**< seconds for the answer, and for a device to come back */
    bool waits = false;             /**< for a device that is away */
    bool checks = false;            /**< a "resp_code" other than 0 is a failure */
    std::vector<std::string> until; /**< uploads of which one completes the order; none: the
                                         answer does */
    double until_timeout = 0;       /**< seconds from the answer to that upload */
    std::function<bool(const Received &upload)> is_mine = [](const Received &) { return true; };
    size_t parallel = 1; /**< devices at once */
};

/** A broker, and the packet identifier of what was sent to it. */
using Receipt = std::pair<size_t, int>;

/** The order of one device. */
struct Order {
    enum class State { waiting, sent, following };

    std::string serial;
    State state = State::waiting;
    std::string correlation;
    Clock::time_point deadline;
    Receipt receipt;         /**< of the command, as it was sent last */
    std::set<size_t> absent; /**< brokers that it does not listen to */
    std::optional<Received> answer;
    std::optional<Received> upload; /**< that completed it */
    int exit = done;
    std::string failure; /**< a sentence; empty when all is well */
};

/** Sends a form to devices, a bounded number at a time. Each is asked on the broker of its
 *  newest connection. Where nobody listens there, which the broker says, the next one is
 *  asked that may have the device; a command whose fate is not known is never sent again
 *  unless the form waits. */
class Orders {
  public:
    Orders(Brokers &brokers, Form form);
    Orders(const Orders &) = delete;
    Orders &operator=(const Orders &) = delete;

    /** Runs until each device's order has ended. */
    void run(const std::vector<std::string> &serials);

    std::function<void(const Order &)> on_answer = [](const Order &) {};
    std::function<void(const Order &)> on_end = [](const Order &) {};

  private:
    void subscribe(const std::vector<std::string> &serials);
    void take(const Received &message);
    void take_status(Order &order, size_t broker);
    void take_answer(Order &order, const Received &message);
    void take_upload(Order &order, const Received &message);
    void take_acknowledgement(const Receipt &receipt, int reason);
    void take_loss(size_t broker);
    void start(const std::string &serial);
    std::vector<size_t> places_of(const Order &order) const;
    void send(Order &order);
    void rest(Order &order, Order::State state, double seconds);
    void end(Order &order, int exit, const std::string &failure);
    void end_late();

    Brokers &brokers_;
    Form form_;
    Fleet fleet_;
    std::map<std::string, Order> active_;
    std::map<Receipt, std::string> unacknowledged_; /**< serial numbers */
    bool moved_ = false;                            /**< an order changed its state or ended */
};

/** True when the answer says that the device did what it was told. */
bool is_success(const std::string &target, const std::string &answer);

}  // namespace nxctl

#endif

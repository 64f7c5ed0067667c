/**
 * Commands of people: kept before they are sent, with their ends, and those that wait for a
 * device that is away.
 */
#ifndef CONTROLLER_FLEET_ORDERS_H
#define CONTROLLER_FLEET_ORDERS_H

#include <deque>
#include <map>
#include <string>

#include "controller/fleet/fleet.h"
#include "controller/store/vault.h"

namespace fleet {

/** A command as somebody orders it. */
struct Command {
    std::string serial;
    std::string name;    /**< of the agent's handler */
    std::string request; /**< the text that is sent */
    std::string shown;   /**< the same as the history may show it */
    std::string user;
    std::string key; /**< by which the same order is known again; empty: none */
    double patience_s = 20;
    bool may_wait = false; /**< for a device that is away */
};

/** One thread, that of the fleet. */
class Orders {
  public:
    /** What became of an order; `row` is that of its table, null for one that is not kept:
     *  `offline` at once, and `not_kept` by the database. */
    enum class Fate { done, waits, offline, known, not_kept };
    using Hear = std::function<void(Fate fate, const Json &row)>;

    /** Takes the commands that waited when the service ended; those that were on their way
     *  then have an unknown end. */
    Orders(store::Database &database, const store::Vault &vault, Fleet &fleet, Fleet::Post post);

    /** Keeps the command, sends it, keeps its end, then calls `hear`, once. An order whose
     *  key is known is not carried out again. */
    void order(const Command &command, Hear hear);

    /** Sends what waits for a device. */
    void device_came(const std::string &serial);

    /** Somebody took a command back before it was sent. */
    void cancelled(const std::string &serial, long long id);

    /** Somebody's command was answered by a device. */
    std::function<void(const Command &command)> on_commanded = [](const Command &) {};

  private:
    struct Waiting {
        long long id = 0;
        std::string name, request;
    };

    void send(long long id, const Command &command, const Hear &hear);
    void finish(long long id, const Command &command, const Outcome &outcome, const Hear &hear);
    void tell(long long id, Fate fate, const Hear &hear);

    store::Database &database_;
    const store::Vault &vault_;
    Fleet &fleet_;
    Fleet::Post post_;
    std::map<std::string, std::deque<Waiting>> waiting_; /**< by serial */
};

}  // namespace fleet

#endif

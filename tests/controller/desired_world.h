/**
 * A device and its controller, told apart by nothing but messages, on a clock that the test
 * moves.
 */
#ifndef TESTS_CONTROLLER_DESIRED_WORLD_H
#define TESTS_CONTROLLER_DESIRED_WORLD_H

#include <gtest/gtest.h>

#include <random>

#include "controller/desired/step.h"

namespace test {

using desired::Json;
using desired::Next;
using desired::State;

/** A device: the model or a real agent. Keys are those of its configuration store. */
class Box {
  public:
    virtual ~Box() = default;
    virtual Json call(const std::string &command, const Json &request) = 0;
    virtual Json binding() = 0; /**< what its agent tells when it starts */
    virtual void restart() = 0;
    virtual bool takes_restart() = 0; /**< whether a command ordered one; once */
    virtual void restore() = 0;       /**< factory settings */
    virtual void edit(const std::string &key, const std::string &value) = 0; /**< and commits */
    virtual std::string value(const std::string &key) = 0;
    virtual void fail_commits(int count) = 0;
};

/** The key's values that a device must have to be what the configuration says; written from
 *  the agent's own tables, not from those of the controller. */
void expect_configured(Box &box, const Json &configuration);

class World {
  public:
    /** What becomes of a command. After a crash the next controller knows that it was sent. */
    enum class Fate { done, request_lost, answer_lost, restarts_before, restarts_after, crash };

    World(Box &box, desired::Desire wanted) : desire(std::move(wanted)), box_(box) { boot(1); }

    /** One step of the controller: sends a command, or lets the time pass until the next. */
    Next turn(Fate fate = Fate::done);

    /** Turns until nothing is to happen for hours; the state then. */
    Next settle(int most_turns = 400);

    void restart(int attempts = 1); /**< of the device; number of attempts until it is back */
    void reconnect();
    void set_local(bool local);
    void absorb(const desired::Event &event);
    void configure(const Json &configuration);

    Next look() const { return desired::next_step(known, desire, now); }
    /** The names of the commands so far, and a fresh start. */
    std::vector<std::string> take_sent() { return std::exchange(sent, {}); }

    desired::Known known;
    desired::Desire desire;
    desired::Time now = 1'700'000'000;
    int64_t commands = 0;
    std::vector<std::string> sent;

  private:
    bool is_local();
    void boot(int attempts);
    void greet();
    void look_at(const desired::Order &order);

    Box &box_;
    Json told_binding_;
    int64_t connection_ = 0;
    int64_t highest_stamp_ = 0;
    int version_ = 1;
    bool told_local_ = false; /**< the controller knows that the device is managed locally */
};

}  // namespace test

#endif

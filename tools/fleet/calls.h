/**
 * The commands of a run, and what became of each.
 */
#ifndef TOOLS_FLEET_CALLS_H
#define TOOLS_FLEET_CALLS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/fleet/figures.h"
#include "tools/fleet/scenario.h"

namespace fleet {

class Calls {
  public:
    using Clock = std::chrono::steady_clock;

    /** A line of figures for each command of the scenario. */
    Calls(const Scenario &scenario, Figures &figures);

    /** The number of the call that comes next. */
    size_t next() const { return calls_.size(); }

    /** It was sent, or could not be. */
    void sent(const Step &step, uint32_t device);
    void away(const Step &step) { ++of(step.command).away; }

    void answered(size_t number, bool success);

    /** Gives up those whose time is over. */
    void expire();

    /** How many answers each device left out, by its index. */
    std::map<uint32_t, uint64_t> missing() const;

    /** Is an answer still to come? */
    bool waits() const { return oldest_ < calls_.size(); }

  private:
    enum class State : uint8_t { waits, answered, missing };
    struct Call {
        Clock::time_point sent;
        uint32_t device;
        uint16_t row;
        State state = State::waits;
    };

    CallFigures &of(const std::string &command);
    bool is_over(const Call &call) const;

    Figures &figures_;
    const Clock::duration timeout_;
    std::vector<Call> calls_;
    size_t oldest_ = 0; /**< of those that may wait */
};

}  // namespace fleet

#endif

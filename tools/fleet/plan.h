/**
 * A scenario worked out: which device does what, and when.
 */
#ifndef TOOLS_FLEET_PLAN_H
#define TOOLS_FLEET_PLAN_H

#include <set>

#include "tools/fleet/scenario.h"

namespace fleet {

/** What happens to a device, or to a broker. */
enum class Deed { start, stop, cut, call, set, leave, join, broker };

struct Action {
    double at; /**< seconds of the devices' time */
    Deed deed;
    uint32_t step;
    uint32_t device;      /**< its index; of a broker's: nothing */
    uint32_t station = 0; /**< leave, join: its number */
};

struct Planned {
    std::string serial;
    size_t group;
    std::set<uint32_t> stations; /**< at the begin, their numbers */
};

struct Slice {
    uint32_t part = 1, of = 1;
    bool holds(uint32_t device) const { return device % of == part - 1; }
};

struct Plan {
    std::vector<Planned> devices; /**< of the whole fleet, also those of other slices */
    std::vector<Action> actions;  /**< by their times; of this slice alone */
};

/** The same scenario and seed give the same plan on every machine, and the slices of a
 *  plan together the whole. */
Plan make_plan(const Scenario &scenario, const Slice &slice = {});

/** The MAC address of a station, by its number. */
std::string station_mac(uint32_t number);

}  // namespace fleet

#endif

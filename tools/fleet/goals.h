/**
 * What a run must reach.
 */
#ifndef TOOLS_FLEET_GOALS_H
#define TOOLS_FLEET_GOALS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/fleet/figures.h"
#include "tools/fleet/scenario.h"

namespace fleet {

struct Verdict {
    Goal goal;
    std::optional<double> figure; /**< nothing: it was not measured */
    bool met = false;
};

/** A goal that was not measured is not met. */
std::vector<Verdict> judge(const std::vector<Goal> &goals, const Figures &figures);

/** Names of the goals that there are. */
std::vector<std::string> goal_names();

/** Goals as a report holds them, and back. */
Json to_json(const std::vector<Verdict> &verdicts);
std::vector<Goal> goals_from(const Json &verdicts);

}  // namespace fleet

#endif

/**
 * A fleet at work.
 */
#ifndef TOOLS_FLEET_RUN_H
#define TOOLS_FLEET_RUN_H

#include <filesystem>
#include <string>
#include <vector>

#include "tools/fleet/plan.h"
#include "tools/fleet/report.h"

namespace fleet {

struct RunOptions {
    std::filesystem::path agent;      /**< the program */
    std::filesystem::path folder;     /**< of the devices; empty: one that goes with the run */
    std::vector<std::string> brokers; /**< others' brokers; none: the fleet's own */
    Slice slice;
    bool trace = false;
    bool endless = false; /**< until somebody ends it, whatever the scenario says */
};

/** Runs a scenario to its end, or until SIGINT, SIGTERM or SIGHUP, which this process has
 *  blocked from here on. Everything that it started has ended when it returns, and also
 *  when its process is killed. Throws tools::Failure, among others when the machine bears
 *  no such fleet. */
Report run(const Scenario &scenario, const RunOptions &options);

}  // namespace fleet

#endif

/**
 * Whether the machine bears a fleet.
 */
#ifndef TOOLS_FLEET_LIMITS_H
#define TOOLS_FLEET_LIMITS_H

#include <filesystem>
#include <string>
#include <vector>

namespace fleet {

/** What a fleet needs of the machine. */
struct Needs {
    size_t devices = 0;
    size_t brokers = 0;           /**< of its own */
    std::filesystem::path folder; /**< where the devices are, or will be */
    size_t new_devices = 0;       /**< whose folders are still to be made */
};

/** One limit of the machine. */
struct Limit {
    std::string what; /**< "processes and threads" */
    double needed = 0;
    double present = 0; /**< what is free */
    std::string unit;   /**< "", "MiB" */
    std::string advice; /**< what sets the limit */
};

std::vector<Limit> limits(const Needs &needs);

/** A sentence for each limit that is too low. */
std::vector<std::string> shortages(const std::vector<Limit> &limits);

/** Lets this process, and the brokers that it starts, have as many descriptors as that
 *  takes and as they may. */
void raise_descriptors(const Needs &needs);

}  // namespace fleet

#endif

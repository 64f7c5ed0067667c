/**
 * The device folders of a fleet.
 */
#ifndef TOOLS_FLEET_FOLDERS_H
#define TOOLS_FLEET_FOLDERS_H

#include <filesystem>
#include <vector>

#include "tools/fleet/plan.h"

namespace fleet {

/** Everything throws std::runtime_error with a sentence when it cannot. */
class Folders {
  public:
    explicit Folders(std::filesystem::path where) : where_(std::move(where)) {}

    std::filesystem::path of(const std::string &serial) const { return where_ / serial; }
    std::filesystem::path log_of(const std::string &serial) const;

    /** Makes a device of a group unless it is there; was it? */
    bool make(const Planned &device, const Group &group) const;

    /** The same, and gives it the group's settings, its stations in place of others, and the
     *  brokers. */
    void prepare(const Planned &device, const Group &group, const std::string &brokers) const;

    /** What a `set` or `fault` step does. */
    void change(const std::string &serial, const Step &step) const;

    /** A station comes or goes. */
    void join(const std::string &serial, uint32_t station) const;
    void leave(const std::string &serial, uint32_t station) const;

    /** How many of these values do not stand in the device's configuration. */
    size_t missing(const std::string &serial, const Json &config) const;

    /** The last line of what the device's agent said, for people. */
    std::string last_line(const std::string &serial) const;

  private:
    void patch(const std::string &serial, const Json &change) const;
    void set_config(const std::string &serial, const Json &config) const;

    std::filesystem::path where_;
};

}  // namespace fleet

#endif

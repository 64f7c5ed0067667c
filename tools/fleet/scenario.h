/**
 * What a fleet is made of, what happens to it, and what it must reach.
 */
#ifndef TOOLS_FLEET_SCENARIO_H
#define TOOLS_FLEET_SCENARIO_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/fleet/located_json.h"

namespace fleet {

struct Range {
    int least = 0, most = 0;
};

struct Group {
    std::string name;
    int devices = 0;
    std::string serial; /**< "CAFE{5}": a number of five digits, from 1 */
    std::string model = "ZX-A5";
    Json config = Json::object();   /**< key to text */
    Json hardware = Json::object(); /**< merge patch */
    Json cloud = Json::object();    /**< settings of the cloud library, key to text */
    Range stations;
};

struct Selection {
    std::string group;  /**< empty: every one */
    double share = 1;   /**< of those */
    std::string serial; /**< pattern; empty: any */
};

enum class Verb { start, stop, power, roam, call, fault, set, broker };
enum class BrokerAct { stop, freeze, start };

struct Image {
    std::string model;
    uint32_t size = 0; /**< bytes */
};

/** Times are seconds of the devices' time. */
struct Step {
    Verb verb = Verb::start;
    std::string name; /**< what it does, in words */
    double at = 0;
    Selection on;
    double over = 0;
    double off = 0;                  /**< power */
    int stations = 0;                /**< roam: moves */
    std::string target;              /**< call: "<family>/<slot>" */
    std::string command;             /**< call: its name */
    std::string request;             /**< call: text, may be empty */
    double rate = 0;                 /**< call: a second; 0: one to each at once */
    double lasts = 0;                /**< call; 0: until each had one */
    Json config, hardware;           /**< set; fault: the latter alone; null: none */
    std::optional<Range> new_number; /**< set: stations */
    std::optional<Image> image;      /**< set */
    size_t broker = 0;               /**< broker: index */
    BrokerAct act = BrokerAct::stop;
};

struct Goal {
    std::string name;
    std::optional<double> at_least, at_most;
};

struct Scenario {
    std::string name;
    uint64_t seed = 1;
    double speed = 1;
    double lasts = 0; /**< seconds of the devices' time; 0: until somebody ends it */
    int brokers = 1;
    double answer_timeout = 10; /**< real seconds */
    std::vector<Group> groups;
    std::vector<Step> steps;
    std::vector<Goal> goals;
};

/** Reads and checks a scenario as a whole. Throws tools::Failure with a line for each
 *  fault, eight at most: file, line, column, path and what is wrong. */
Scenario read_scenario(const std::filesystem::path &file);

/** The same of a text. */
Scenario parse_scenario(const std::string &name, const std::string &text);

/** Devices that are started and left alone. */
Scenario plain_scenario(int devices, const std::string &serial, const std::string &model);

/** Seconds of "90s", "10m", "1.5h", "20ms" or a bare number; nothing for any other text. */
std::optional<double> seconds_of(const std::string &text);

/** The serial number with this number, from 1; "" when it has too many digits. */
std::string serial_of(const std::string &pattern, int number);

/** What is wrong with a pattern for so many devices; "" for nothing. */
std::string serial_fault(const std::string &pattern, int devices);

/** Gives the groups so many devices altogether, each at least one, and rates and moves
 *  their share of it. */
void resize(Scenario &scenario, int devices);

}  // namespace fleet

#endif

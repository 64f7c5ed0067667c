/**
 * What brokers know of devices, and which of them are meant.
 */
#ifndef TOOLS_NXCTL_FLEET_H
#define TOOLS_NXCTL_FLEET_H

#include <CLI/CLI.hpp>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/nxctl_brokers.h"
#include "tools/nxctl_json.h"
#include "tools/nxctl_options.h"

namespace nxctl {

/** A topic of a device: its serial number, and what lies below. */
struct Place {
    std::string serial;
    std::string below;
};
std::optional<Place> place_of(const std::string &topic);

/** What a device's status says: {"online":true,"connection":3,"since":1767225600.123}, of
 *  an older device only the first. */
struct Presence {
    bool told = false;          /**< there is a status, readable or not */
    std::optional<bool> online; /**< none for one that cannot be read */
    int64_t connection = 0;     /**< number of its connection, growing; 0 when not told */
    double since = 0;           /**< when that was made, seconds since 1970; 0 when not told */

    /** "online", "offline", "unknown" without a status, "?" for one that is no status. */
    std::string state() const;

    /** True when it tells of a newer connection, or alone tells of one. */
    bool is_newer_than(const Presence &other) const;
};
Presence presence_of(const std::string &status);

/** What brokers know of one device. When a broker dies, nobody takes back that a device is
 *  online there, and it may say so later; so the word of the newest connection counts. */
class Device {
  public:
    /** Takes what a message of it says; others than status and identity are left alone. */
    void take(const std::string &below, const Received &message);

    /** The newest one. */
    Presence presence() const;

    /** The broker whose word that is; 0 when none has one. */
    size_t broker() const;

    /** What one broker says. */
    Presence presence_at(size_t broker) const;

    /** As the device told it with its newest connection; null for none, or none that is
     *  JSON. */
    const Json &identity() const;

    /** A member of the identity that is a text: "" when it is missing, "?" for any other
     *  type and for an identity that is no object. */
    std::string told(const std::string &member) const;

  private:
    struct Word {
        Presence presence;
        Json identity;
    };
    std::map<size_t, Word> words_; /**< by broker */
};

/** The devices that messages have told of, by serial number. */
class Fleet {
  public:
    /** Takes a status or an identity; others are left alone. */
    void take(const Received &message);

    const std::map<std::string, Device> &devices() const { return devices_; }

    /** One that nobody told of is an empty one. */
    const Device &device(const std::string &serial) const;

  private:
    std::map<std::string, Device> devices_;
};

/** Which devices are meant. Patterns are those of a shell: * ? [...] */
struct Filter {
    std::vector<std::string> serials; /**< serial numbers and patterns; none: all */
    bool online = false;
    bool offline = false;
    std::string model;
    std::string firmware;

    /** True when it asks for more than serial numbers. */
    bool narrows() const;

    bool takes(const std::string &serial) const;
    bool takes(const std::string &serial, const Device &device) const;
};

bool is_pattern(const std::string &serial);

/** Throws Misuse for a text that is no serial number: empty, or with one of + # / */
void check_serial(const std::string &serial);

/** --online, --offline, --model and --firmware. */
void add_filter_options(CLI::App &command, Filter &filter);

/** The argument SERIAL of a filter, completed to the devices of the brokers. */
CLI::Option *add_serials(CLI::App &command, Filter &filter, const Options &options,
                         const std::string &description);

/** Serial numbers of the devices that the brokers know, for completion. */
tools::Words known_serials(const Options &options);

/** The topics below which everything lies that the filter may take. */
std::vector<std::string> topics_of(const Filter &filter, const std::vector<std::string> &below);

/** Asks the brokers for status and identity of what the filter takes. Their `on_message`
 *  afterwards still feeds the fleet. */
void load(Brokers &brokers, Fleet &fleet, const Filter &filter);

/** The serial numbers that a filter names or finds, each once: those that it names in
 *  their order, known to the brokers or not, then the others in theirs. */
std::vector<std::string> chosen(const Fleet &fleet, const Filter &filter);

}  // namespace nxctl

#endif

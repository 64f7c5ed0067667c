/**
 * What a broker knows of devices, and which of them are meant.
 */
#ifndef TOOLS_NXCTL_FLEET_H
#define TOOLS_NXCTL_FLEET_H

#include <CLI/CLI.hpp>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/nxctl_json.h"
#include "tools/nxctl_options.h"
#include "tools/nxctl_session.h"

namespace nxctl {

/** A topic of a device: its serial number, and what lies below. */
struct Place {
    std::string serial;
    std::string below;
};
std::optional<Place> place_of(const std::string &topic);

/** What a device's status says: {"online":true}, perhaps with more. */
struct Presence {
    bool told = false;          /**< there is a status, readable or not */
    std::optional<bool> online; /**< none for one that cannot be read */
    int64_t connection = 0;     /**< number of its connection, growing; 0 when not told */
    int64_t since = 0;          /**< when that was made, seconds since 1970; 0 when not told */

    /** "online", "offline", "unknown" without a status, "?" for one that is no status. */
    std::string state() const;
};
Presence presence_of(const std::string &status);

struct Device {
    Presence presence;
    Json identity; /**< as the device told it; null for none, or none that is JSON */

    /** A member of the identity that is a text: "" when it is missing, "?" for any other
     *  type and for an identity that is no object. */
    std::string told(const std::string &member) const;
};

/** The devices that messages have told of, by serial number. */
class Fleet {
  public:
    /** Takes a status or an identity; others are left alone. */
    void take(const Received &message);

    const std::map<std::string, Device> &devices() const { return devices_; }
    Presence presence(const std::string &serial) const;

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

/** The argument SERIAL of a filter, completed to the devices of the broker. */
CLI::Option *add_serials(CLI::App &command, Filter &filter, const Options &options,
                         const std::string &description);

/** Serial numbers of the devices that the broker knows, for completion. */
tools::Words known_serials(const Options &options);

/** The topics below which everything lies that the filter may take. */
std::vector<std::string> topics_of(const Filter &filter, const std::vector<std::string> &below);

/** Asks the broker for status and identity of what the filter takes. The session's
 *  `on_message` afterwards still feeds the fleet. */
void load(Session &session, Fleet &fleet, const Filter &filter);

/** The serial numbers that a filter names or finds, each once: those that it names in
 *  their order, known to the broker or not, then the others in theirs. */
std::vector<std::string> chosen(const Fleet &fleet, const Filter &filter);

}  // namespace nxctl

#endif

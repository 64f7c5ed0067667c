/**
 * What the virtual access point shows of its hardware: the description in
 * hardware.json as typed records, built again whenever the file changes, and the
 * counters that move with virtual time.
 */
#ifndef VIRTUAL_HARDWARE_EQUIPMENT_H
#define VIRTUAL_HARDWARE_EQUIPMENT_H

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "virtual/device/device.h"

namespace vap {

using Mac = std::array<uint8_t, 6>;

/** Reads the colon form with two digits a group, in either case. */
std::optional<Mac> mac_of(std::string_view text);

/** Lower-case colon form. */
std::string mac_text(const Mac &mac);

/** The radios; the index is the radio number. */
struct Band {
    int code;              /**< band code of the Wi-Fi functions */
    const char *key;       /**< member of "radios" and "scan" */
    const char *name_key;  /**< member of "names": its main interface */
    const char *interface; /**< name of a new device's main interface */
    int slots;             /**< SSIDs */
};
constexpr std::array<Band, 2> bands{
    {{24, "24", "radio_2g", "wlan1", 8}, {5, "5", "radio_5g", "wlan0", 4}}};

/** Radio number of a band code, -1 for another number. */
int radio_of_band(int code);

/** Interface of an SSID: the main one for slot 0, "-vaN" behind it for the rest. */
std::string ssid_interface(const std::string &main_interface, int slot);

/** A count that moves with virtual time. */
struct Counter {
    uint64_t start = 0; /**< as the description gives it */
    double rate = 0;    /**< a second */
    uint64_t value = 0; /**< count at uptime `at` */
    double at = 0;

    uint64_t now(double uptime) const;

    /** Goes on from the record before where the description still gives the same
     *  start, so that a new rate bends the line; begins at `from` otherwise. */
    void go_on(const Counter *before, double uptime, double from);
};

/** One direction of an interface or a switch port. */
struct Traffic {
    Counter bytes;
    Counter packets; /**< a packet for each thousand bytes */
    uint64_t errors = 0;
    uint64_t multicast = 0;
    uint64_t broadcast = 0;
};

struct Station {
    Mac mac{};
    std::string mac_text;
    std::string ip;
    std::string signal;
    int radio = 0;
    int slot = 0;
    int os = 0;
    bool in_arp = true;
    bool barred = false;         /**< thrown off its SSID */
    std::optional<double> since; /**< uptime of the association, as described */
    double joined = 0;           /**< the same, in force */
    std::string interface;
    Counter down;
    Counter up;

    bool present(double uptime) const { return !barred && joined <= uptime; }
};

struct Neighbour {
    std::string ssid, bssid, channel, signal, bandwidth;
};

struct Radio {
    std::string interface;
    std::string channel, bandwidth, upstream;
    std::string bit_rate;
    std::vector<std::pair<int, int>> channel_use; /**< channel, per cent */
    std::optional<std::vector<Neighbour>> scan;
};

struct Interface {
    std::string name;
    std::optional<Mac> mac;
    std::string ip;
    Traffic rx, tx;
};

struct SwitchPort {
    int number = 0;
    bool link = false;
    std::optional<int> speed;  /**< code of the contract */
    std::optional<int> duplex; /**< likewise */
    Traffic in, out;
};

struct ArpEntry {
    Mac mac{};
    std::array<uint8_t, 4> ip{};
};

/** What the topology kernel module knows. */
struct Topology {
    std::optional<int> port;
    std::optional<std::string> if_name;
    std::optional<std::string> data; /**< stands in place of the module's own text */
    bool silent = false;

    /** The module's text about the port behind which the server lies. */
    std::string text() const;
    bool operator==(const Topology &) const = default;
};

enum class Discovery { answers, silent, absent };

struct PingHost {
    std::string name, address;
    bool unknown = false;
    std::vector<std::optional<double>> replies; /**< milliseconds; none: lost */
};

struct FirmwareLibrary {
    uint64_t partition_size = 0;
    std::string model;
    std::optional<int> type, valid, mtd_size, crc; /**< verdicts set by hand */
};

/** What the system tools tell, per cent. */
struct SystemState {
    int cpu = 0, mem = 0, rom = 0;
    std::string version;
};

/** Free memory in bytes. */
struct Memory {
    uint64_t free = 0;
    uint64_t freed_by_stopping = 0;
};

struct LogRecord {
    std::string time;
    int type = 0;
    std::string event;
};

struct Equipment {
    std::array<std::string, 5> names; /**< in the order of `name_keys` */
    std::array<std::optional<Radio>, 2> radios;
    std::vector<std::optional<Mac>> bssids; /**< by SSID slot */
    std::vector<Station> stations;
    std::map<Mac, size_t> station_places; /**< in `stations` */
    std::vector<ArpEntry> arp;
    std::vector<Interface> interfaces;
    std::vector<SwitchPort> ports;
    Topology topology;
    Discovery discovery = Discovery::answers;
    std::vector<PingHost> ping;
    FirmwareLibrary firmware;
    SystemState system;
    Memory memory;
    std::vector<std::string> processes;           /**< that run from the start */
    std::optional<std::vector<LogRecord>> syslog; /**< oldest first; nothing: unreadable */
    int wget_status = 0;

    const Station *station(const Mac &mac) const;
    const Interface *interface(std::string_view name) const;
    const SwitchPort *port(int number) const;
    /** Radio number of a main interface, -1 for another name. */
    int radio_of(std::string_view main_interface) const;
};

/** Members of "names". */
enum NameOf { lan_name, lan_uplink_name, wan_uplink_name, radio_2g_name, radio_5g_name };
constexpr std::array<const char *, 5> name_keys{"lan", "lan_uplink", "wan_uplink", "radio_2g",
                                                "radio_5g"};

/** Builds the records of a description; what makes no sense is left out with a
 *  line on standard error. */
Equipment read_equipment(const Json &description);

/** The current device's hardware, as its description stands now; held until the
 *  handle is gone. Do not journal or sleep with it in hand. */
class EquipmentLock {
  public:
    EquipmentLock(std::unique_lock<std::mutex> lock, Equipment *equipment, double uptime)
        : lock_(std::move(lock)), equipment_(equipment), uptime_(uptime) {}
    Equipment *operator->() const { return equipment_; }
    double uptime() const { return uptime_; }

  private:
    std::unique_lock<std::mutex> lock_;
    Equipment *equipment_;
    double uptime_;
};
EquipmentLock equipment_now();

/** Files that shell commands of the agent read: the channel utilisation of each
 *  radio, and the answers of `ping` and `iwconfig`. */
void write_equipment_files(const Equipment &equipment);

/** Journals a call that the hardware does not provide; returns its result. */
int refuse(const char *op, Json args, int result);

/** Sends the module's event about its server port to the bus's subscribers. */
void announce_topology(const Topology &topology);

/** Waits until the bus has delivered all its messages; not from its own thread. */
void settle_bus();
void stop_bus();

/** The discovery service and the watch over hardware.json, on one thread. */
void start_services();
void stop_services();

/** Wakes that thread, to look at what the equipment says of it. */
void wake_services();

/** Waits until the services have taken in every change that they were woken for.
 *  Not on their own thread. */
void settle_services();

}  // namespace vap

#endif

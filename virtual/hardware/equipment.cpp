/* The current device's hardware: when its records are built, how its counts go on. */
#include "virtual/hardware/equipment.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace vap {
namespace {

/** Equipment of the current device. */
struct State {
    std::mutex mutex;
    Equipment equipment;
    std::optional<uint32_t> generation; /**< of the records; nothing: none yet */
};

State &state() {
    static State &one = *new State;  // outlives every thread of the process
    return one;
}

/** A missing section is that of a new device. */
Json whole_description() {
    Json description = hardware_description();
    if (!description.is_object()) {
        description = Json::object();
    }
    const Json fresh = default_hardware({.serial = "", .model = ""});
    for (const auto &[section, value] : fresh.items()) {
        if (!description.contains(section) || description[section].is_null()) {
            description[section] = value;
        }
    }
    return description;
}

void go_on(Traffic &traffic, const Traffic *before, double uptime) {
    traffic.bytes.go_on(before ? &before->bytes : nullptr, uptime, uptime);
    traffic.packets.go_on(before ? &before->packets : nullptr, uptime, uptime);
}

/** A station that the description goes on to show the same way stays what it
 *  was: associated since then, or barred. */
void go_on(Station &station, const Station *before, double uptime) {
    const bool same = before != nullptr && before->since == station.since;
    station.barred = before != nullptr && before->barred && before->radio == station.radio &&
                     before->slot == station.slot;
    station.joined = same ? before->joined : station.since.value_or(uptime);
    const double from = std::max(station.joined, uptime);
    station.down.go_on(before ? &before->down : nullptr, uptime, from);
    station.up.go_on(before ? &before->up : nullptr, uptime, from);
}

void go_on(Equipment &equipment, const Equipment &before, double uptime) {
    for (Station &station : equipment.stations) {
        go_on(station, before.station(station.mac), uptime);
    }
    for (Interface &interface : equipment.interfaces) {
        const Interface *old = before.interface(interface.name);
        go_on(interface.rx, old ? &old->rx : nullptr, uptime);
        go_on(interface.tx, old ? &old->tx : nullptr, uptime);
    }
    for (SwitchPort &port : equipment.ports) {
        const SwitchPort *old = before.port(port.number);
        go_on(port.in, old ? &old->in : nullptr, uptime);
        go_on(port.out, old ? &old->out : nullptr, uptime);
    }
}

/** Builds the records again when the description has changed. */
void refresh(State &all) {
    const uint32_t generation = hardware_generation();
    if (all.generation == generation) {
        return;
    }
    const Inside inside;
    Equipment fresh = read_equipment(whole_description());
    go_on(fresh, all.equipment, uptime());
    const bool moved = !(fresh.topology == all.equipment.topology);
    const bool discovery = fresh.discovery != all.equipment.discovery;
    all.equipment = std::move(fresh);
    all.generation = generation;
    write_equipment_files(all.equipment);
    if (moved) {
        announce_topology(all.equipment.topology);
    }
    if (discovery) {
        wake_services();
    }
}

template <typename Records, typename Key>
auto find_record(const Records &records, Key key, auto member) -> const
    typename Records::value_type * {
    const auto found = std::ranges::find(records, key, member);
    return found == records.end() ? nullptr : &*found;
}

}  // namespace

std::optional<Mac> mac_of(std::string_view text) {
    Mac mac{};
    if (text.size() != 17) {
        return std::nullopt;
    }
    for (size_t i = 0; i < mac.size(); i++) {
        const char *digits = &text[3 * i];
        if (std::from_chars(digits, digits + 2, mac[i], 16).ptr != digits + 2 ||
            (i > 0 && digits[-1] != ':')) {
            return std::nullopt;
        }
    }
    return mac;
}

std::string mac_text(const Mac &mac) {
    char text[18];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

int radio_of_band(int code) {
    const auto *band = find_record(bands, code, &Band::code);
    return band == nullptr ? -1 : static_cast<int>(band - bands.data());
}

std::string ssid_interface(const std::string &main_interface, int slot) {
    return slot == 0 ? main_interface : main_interface + "-va" + std::to_string(slot);
}

uint64_t Counter::now(double uptime) const {
    const double moved = std::round(std::max(uptime - at, 0.0) * rate);
    return value + static_cast<uint64_t>(std::fmod(moved, 0x1p64));  // as far as it fits
}

void Counter::go_on(const Counter *before, double uptime, double from) {
    const bool same = before != nullptr && before->start == start;
    value = same ? before->now(uptime) : start;
    at = same ? std::max(uptime, before->at) : from;
}

const Station *Equipment::station(const Mac &mac) const {
    const auto found = station_places.find(mac);
    return found == station_places.end() ? nullptr : &stations[found->second];
}

const Interface *Equipment::interface(std::string_view name) const {
    return find_record(interfaces, name, &Interface::name);
}

const SwitchPort *Equipment::port(int number) const {
    return find_record(ports, number, &SwitchPort::number);
}

int Equipment::radio_of(std::string_view main_interface) const {
    for (size_t i = 0; i < radios.size(); i++) {
        if (radios[i] && radios[i]->interface == main_interface) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

EquipmentLock equipment_now() {
    State &all = state();
    std::unique_lock lock(all.mutex);
    refresh(all);
    return {std::move(lock), &all.equipment, uptime()};
}

int wget_status() {
    return equipment_now()->wget_status;
}

void hardware_changed() {
    equipment_now();
    settle_bus();
    settle_services();
}

void start_hardware() {
    {
        const std::lock_guard lock(state().mutex);
        state().generation.reset();
        state().equipment = {};
    }
    equipment_now();
    start_services();
    on_close([] {
        stop_services();
        stop_bus();
    });
}

int refuse(const char *op, Json args, int result) {
    record(op, std::move(args), result);
    return result;
}

}  // namespace vap

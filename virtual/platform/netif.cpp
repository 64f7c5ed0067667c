/* Interfaces, address texts and switch ports: platform/netif.h. */
#include "platform/netif.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "virtual/hardware/equipment.h"

namespace vap {
namespace {

/** Lets `use` read an interface; false when there is none, or `use` says so. */
bool with_interface(const char *name, auto use) {
    if (name == nullptr) {
        return false;
    }
    const EquipmentLock equipment = equipment_now();
    const Interface *found = equipment->interface(name);
    return found != nullptr && use(*found, equipment.uptime());
}

/** Copies a MAC text with the case of its letters changed. */
void change_case(const char *in, char *out, char first, char last, int shift) {
    if (in == nullptr || out == nullptr) {
        return;
    }
    do {
        *out++ = *in >= first && *in <= last ? static_cast<char>(*in + shift) : *in;
    } while (*in++ != '\0');
}

/** A counter line of the switch: its name stands at the start, the number first
 *  behind it. */
std::string counter_line(const char *name, uint64_t number) {
    char line[64];
    snprintf(line, sizeof line, "%-21s %llu\n", name, static_cast<unsigned long long>(number));
    return line;
}

}  // namespace

std::string asic_counter_text(int port) {
    const EquipmentLock equipment = equipment_now();
    const SwitchPort *found = equipment->port(port);
    if (found == nullptr) {
        return "";
    }
    const double uptime = equipment.uptime();
    const auto small = [](uint64_t count) { return static_cast<uint32_t>(count); };
    return "<Port: " + std::to_string(port) + ">\n" +
           counter_line("ifInOctets", found->in.bytes.now(uptime)) +
           counter_line("ifInUcastPkts", small(found->in.packets.now(uptime))) +
           counter_line("etherStatsMcastPkts", small(found->in.multicast)) +
           counter_line("etherStatsBcastPkts", small(found->in.broadcast)) +
           counter_line("ifOutOctets", found->out.bytes.now(uptime)) +
           counter_line("ifOutUcastPkts", small(found->out.packets.now(uptime))) +
           counter_line("ifOutMulticastPkts", small(found->out.multicast)) +
           counter_line("ifOutBrocastPkts", small(found->out.broadcast));
}

}  // namespace vap

using namespace vap;

extern "C" {

int ifaddrs_get_if_netmac(const char *ifname, uint8_t *mac) {
    if (const auto fault = due_fault("ifaddrs_get_if_netmac", -1)) {
        return static_cast<int>(*fault);
    }
    const bool done = mac != nullptr && with_interface(ifname, [&](const Interface &found, double) {
                          if (found.mac) {
                              std::ranges::copy(*found.mac, mac);
                          }
                          return found.mac.has_value();
                      });
    return done ? 0 : refuse("ifaddrs_get_if_netmac", Json::array({text_arg(ifname)}), -1);
}

int ifaddrs_get_ifip(const char *ifname, char *ip) {
    if (const auto fault = due_fault("ifaddrs_get_ifip", -1)) {
        return static_cast<int>(*fault);
    }
    const bool done = ip != nullptr && with_interface(ifname, [&](const Interface &found, double) {
                          if (!found.ip.empty()) {
                              snprintf(ip, 16, "%s", found.ip.c_str());
                          }
                          return !found.ip.empty();
                      });
    return done ? 0 : refuse("ifaddrs_get_ifip", Json::array({text_arg(ifname)}), -1);
}

int sys_get_if_statistics(const char *ifname, if_stats *stats) {
    if (const auto fault = due_fault("sys_get_if_statistics", -1)) {
        return static_cast<int>(*fault);
    }
    const bool done =
        stats != nullptr && with_interface(ifname, [&](const Interface &found, double uptime) {
            *stats = {.rx_bytes = found.rx.bytes.now(uptime),
                      .rx_packets = found.rx.packets.now(uptime),
                      .rx_errors = found.rx.errors,
                      .tx_bytes = found.tx.bytes.now(uptime),
                      .tx_packets = found.tx.packets.now(uptime),
                      .tx_errors = found.tx.errors};
            return true;
        });
    return done ? 0 : refuse("sys_get_if_statistics", Json::array({text_arg(ifname)}), -1);
}

int ifaddrs_ethaddr_aton(const char *text, uint8_t *mac) {
    if (const auto fault = due_fault("ifaddrs_ethaddr_aton", -1)) {
        return static_cast<int>(*fault);
    }
    const std::optional<Mac> read = text == nullptr ? std::nullopt : mac_of(text);
    if (!read || mac == nullptr) {
        return -1;
    }
    std::ranges::copy(*read, mac);
    return 0;
}

void string_upper_mac(const char *in, char *out) {
    change_case(in, out, 'a', 'z', 'A' - 'a');
}

void string_lower_mac(const char *in, char *out) {
    change_case(in, out, 'A', 'Z', 'a' - 'A');
}

int hal_get_port_link_status(int port) {
    if (const auto fault = due_fault("hal_get_port_link_status", 0)) {
        return static_cast<int>(*fault);
    }
    const EquipmentLock equipment = equipment_now();
    const SwitchPort *found = equipment->port(port);
    return found != nullptr && found->link ? 1 : 0;
}

int hal_get_eth_status(int port, int *speed, int *duplex) {
    if (const auto fault = due_fault("hal_get_eth_status", -1)) {
        return static_cast<int>(*fault);
    }
    {
        const EquipmentLock equipment = equipment_now();
        const SwitchPort *found = equipment->port(port);
        // Without a link there is nothing that was negotiated.
        if (found != nullptr && found->link && found->speed && found->duplex && speed != nullptr &&
            duplex != nullptr) {
            *speed = *found->speed;
            *duplex = *found->duplex;
            return 0;
        }
    }
    return refuse("hal_get_eth_status", Json::array({port}), -1);
}

}  // extern "C"

/**
 * The commands of the agent by their handlers' names.
 */
#ifndef TOOLS_NXCTL_COMMANDS_H
#define TOOLS_NXCTL_COMMANDS_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "platform/nxapi.h"

namespace nxctl {

struct NamedCommand {
    std::string_view family;
    size_t slot;
    std::string_view name;
};

inline constexpr auto commands = std::to_array<NamedCommand>({
    {"cloud", 0, "add_router_to_prj"}, {"cloud", 1, "del_router_from_prj"},
    {"cloud", 2, "config_sync"},       {"cloud", 3, "server_status"},
    {"cloud", 4, "app_open_cloud"},    {"dev", 0, "status_upload"},
    {"dev", 1, "statistic_upload"},    {"dev", 2, "config_upload"},
    {"dev", 3, "timestamp_download"},  {"dev", 4, "server_config_download"},
    {"dev", 5, "reboot_download"},     {"dev", 6, "auto_maint"},
    {"dev", 7, "force_off"},           {"dev", 8, "nx_upgrade"},
    {"dev", 9, "nx_restore"},          {"dev", 19, "topo_info"},
    {"dev", 20, "server_info"},        {"dev", 23, "dev_locate"},
    {"dev", 24, "dev_local_upgrade"},  {"dev", 26, "dev_config_copy_upload"},
    {"net", 0, "basic_set"},           {"net", 1, "basic_get"},
    {"net", 2, "route_set"},           {"net", 3, "port_fwd_set"},
    {"net", 4, "net_check"},           {"net", 5, "lan_set"},
    {"wlan", 0, "wlan_config_set"},    {"wlan", 1, "radio_opt_set"},
    {"wlan", 2, "radio_config_set"},   {"wlan", 3, "radio_optimiza_upload"},
});

struct FamilySize {
    std::string_view name;
    size_t slots;
};

inline constexpr auto families = std::to_array<FamilySize>({
    {"cloud", NX_CLOUD_SLOTS},
    {"dev", NX_DEV_SLOTS},
    {"net", NX_NET_SLOTS},
    {"wlan", NX_WLAN_SLOTS},
});

/** Slots of a family; 0 for an unknown one. */
constexpr size_t slots_of(std::string_view family) {
    const auto found = std::ranges::find(families, family, &FamilySize::name);
    return found == families.end() ? 0 : found->slots;
}

static_assert(std::ranges::all_of(commands, [](const NamedCommand &row) {
    return row.slot < slots_of(row.family) &&
           std::ranges::count(commands, row.name, &NamedCommand::name) == 1;
}));

}  // namespace nxctl

#endif

/**
 * What the agent registered: its poll hooks, its command tables and the setter
 * of its serial number. Main thread only.
 */
#ifndef NXAPI_REGISTRY_H
#define NXAPI_REGISTRY_H

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/nxapi.h"

namespace nxapi {

/** A command family: its name in topics and how many slots it has. */
struct Family {
    std::string_view name;
    size_t slots;
};

inline constexpr std::array<Family, 4> families{{{"cloud", NX_CLOUD_SLOTS},
                                                 {"dev", NX_DEV_SLOTS},
                                                 {"net", NX_NET_SLOTS},
                                                 {"wlan", NX_WLAN_SLOTS}}};

inline constexpr size_t most_slots = NX_DEV_SLOTS;

struct Registry {
    nx_poll_start_fn poll_start = nullptr;
    nx_poll_stop_fn poll_stop = nullptr;
    std::array<std::array<nx_slot, most_slots>, families.size()> tables{};
    nx_serial_setter set_serial = nullptr;
};

/** The one of the process, which the contract's functions fill. */
Registry &registry();

/** Index of a family in `families`; nothing for an unknown name. */
std::optional<size_t> family_index(std::string_view name);

/** The response of a command, as the agent allocated it; freed with this. */
struct Reply {
    int result = -1;
    char *text = nullptr;
    int length = 0; /**< of `text`; may count its terminating NUL */

    Reply() = default;
    Reply(Reply &&other) noexcept;
    Reply &operator=(Reply &&) = delete;
    ~Reply();
};

/** Runs a slot's callback on the calling thread. `request` may be null. An empty
 *  slot, or one outside the family, gives -1 without a text; so does a callback
 *  that fails. */
Reply run_command(const Registry &registry, size_t family, size_t slot, const char *request,
                  int request_length);

/** Hands the agent its new serial number; the setter's result, -1 without one. */
int run_serial_setter(const Registry &registry, const char *serial, int length);

}  // namespace nxapi

#endif

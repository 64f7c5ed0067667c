#include "wireless/wireless_api.h"

#include "handler.h"
#include "trace.h"

namespace {

constexpr std::array rows{
    FamilyRow{0, wlan_config_set},
    FamilyRow{1, radio_opt_set},
    FamilyRow{2, radio_config_set},
    FamilyRow{3, radio_optimiza_upload},
};
static_assert(family_is_sound<NX_WLAN_SLOTS>(rows));

}  // namespace

int wireless_api() {
    const auto slots = family_slots<NX_WLAN_SLOTS>(rows);
    if (nx_api_enable_m_wlan_fun(slots.data()) == -1) {
        NX_TRACE("enable dev info failed!\n");
        return -1;
    }
    NX_TRACE("enable dev info OK\n");
    return 0;
}

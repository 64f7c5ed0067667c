#include "net/net_api.h"

#include "handler.h"
#include "net/net_check.h"
#include "net/reserved.h"
#include "trace.h"

namespace {

// clang-format off
constexpr std::array rows{
    FamilyRow{0, basic_set},
    FamilyRow{1, basic_get},
    FamilyRow{2, route_set},
    FamilyRow{3, port_fwd_set},
    FamilyRow{4, net_check},
    FamilyRow{5, lan_set},
};
// clang-format on
static_assert(family_is_sound<NX_NET_SLOTS>(rows));

}  // namespace

int net_api() {
    const auto slots = family_slots<NX_NET_SLOTS>(rows);
    if (nx_api_enable_m_net_fun(slots.data()) == -1) {
        NX_TRACE("enable dev info failed!\n");
        return -1;
    }
    NX_TRACE("enable dev info OK\n");
    return 0;
}

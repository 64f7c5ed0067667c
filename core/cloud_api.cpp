#include "core/cloud_api.h"

#include "cloud/config_file.h"
#include "cloud/project.h"
#include "handler.h"
#include "trace.h"

namespace {

// clang-format off
constexpr std::array rows{
    FamilyRow{0, add_router_to_prj},
    FamilyRow{1, del_router_from_prj},
    FamilyRow{2, nullptr, config_sync},
    FamilyRow{3, server_status},
    FamilyRow{4, app_open_cloud},
};
// clang-format on
static_assert(family_is_sound<NX_CLOUD_SLOTS>(rows));

}  // namespace

int cloud_api() {
    const auto slots = family_slots<NX_CLOUD_SLOTS>(rows);
    if (nx_api_enable_m_cloud_fun(slots.data()) == -1) {
        NX_TRACE("enable cloud info failed!\n");
        return -1;
    }
    NX_TRACE("enable cloud info OK\n");
    return 0;
}

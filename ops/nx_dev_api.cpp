#include "ops/nx_dev_api.h"

#include "handler.h"
#include "report/uploads.h"
#include "topo/server.h"
#include "topo/topo_info.h"
#include "trace.h"

namespace {

// clang-format off
constexpr std::array rows{
    FamilyRow{0, status_upload},
    FamilyRow{1, statistic_upload},
    FamilyRow{2, config_upload},
    FamilyRow{3, timestamp_download},
    FamilyRow{4, server_config_download},
    FamilyRow{5, reboot_download},
    FamilyRow{6, auto_maint},
    FamilyRow{7, force_off},
    FamilyRow{8, nx_upgrade},
    FamilyRow{9, nx_restore},
    FamilyRow{19, topo_info},
    FamilyRow{20, server_info},
    FamilyRow{23, dev_locate},
    FamilyRow{24, dev_local_upgrade},
    FamilyRow{26, dev_config_copy_upload},
};
// clang-format on
static_assert(family_is_sound<NX_DEV_SLOTS>(rows));

}  // namespace

int dev_api() {
    const auto slots = family_slots<NX_DEV_SLOTS>(rows);
    if (nx_api_enable_m_dev_fun(slots.data()) == -1) {
        NX_TRACE("[%s]:[%d],enable dev info failed!\n", __func__, __LINE__);
        return -1;
    }
    NX_TRACE("[%s]:[%d],enable dev info OK\n", __func__, __LINE__);
    return 0;
}

#include "ops/nx_dev_api.h"

#include "handler.h"
#include "trace.h"

namespace {

constexpr std::array rows{
    FamilyRow{3, timestamp_download}, FamilyRow{4, server_config_download},
    FamilyRow{5, reboot_download},    FamilyRow{6, auto_maint},
    FamilyRow{9, nx_restore},
};
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

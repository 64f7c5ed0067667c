#include "ops/nx_dev_api.h"

#include "handler.h"
#include "trace.h"

namespace {

constexpr std::array rows{
    FamilyRow{7, force_off},
    FamilyRow{8, nx_upgrade},
    FamilyRow{23, dev_locate},
    FamilyRow{24, dev_local_upgrade},
    FamilyRow{26, dev_config_copy_upload},
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

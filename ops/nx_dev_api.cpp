#include "ops/nx_dev_api.h"

#include "handler.h"
#include "report/uploads.h"
#include "topo/server.h"
#include "trace.h"

namespace {

constexpr std::array rows{
    FamilyRow{0, status_upload},
    FamilyRow{1, statistic_upload},
    FamilyRow{2, config_upload},
    FamilyRow{20, server_info},
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

#include "ops/nx_dev_api.h"
#include "platform/systool.h"

int nx_restore(cJSON *, cJSON *) {
    systool_sys_handle(SYSTOOL_RESTORE_FACTORY);
    return 0;
}

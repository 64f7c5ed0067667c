#include "ops/nx_dev_api.h"
#include "platform/systool.h"

int reboot_download(cJSON *, cJSON *) {
    systool_sys_handle(SYSTOOL_REBOOT);
    return 0;
}

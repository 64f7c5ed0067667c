#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "json.h"
#include "ops/image.h"
#include "ops/nx_dev_api.h"
#include "platform/systool.h"
#include "trace.h"

namespace {

constexpr unsigned open_retry_seconds = 1;
constexpr int64_t size_tolerance = 9;

// The image of the latest command stays open and mapped while it is written;
// the next command lets go of it, so that refused images do not add up.
ImageFile held_image;

bool open_image() {
    if (held_image.open(O_CREAT)) {
        return true;
    }
    NX_TRACE_AS("nx_upgrade", "creat tmp/image error.\n");
    sleep(open_retry_seconds);
    if (held_image.open(O_CREAT)) {
        return true;
    }
    NX_TRACE_AS("nx_upgrade", "creat tmp/image error again.\n");
    unlink(image_path);
    return false;
}

}  // namespace

/** Writes the image that the cloud library has stored to flash, if it has the
 *  announced length and is valid. Always 0: what became of it shows by the
 *  device restarting, or not. */
int nx_upgrade(cJSON *request, cJSON *) {
    const int announced = cJSON_GetObjectIntValue(request, "length", 0);
    if (!open_image()) {
        return 0;
    }
    const size_t size = get_image_file_size(image_path);
    NX_TRACE("recv sky size:%d, read file size:%zu\n", announced, size);
    if (llabs(announced - static_cast<int64_t>(size)) > size_tolerance) {
        NX_TRACE("the upgrade_file size is err!\n");
        return 0;
    }
    if (nx_flash_check_fw_type_and_crc_ap(held_image.map(size), image_path, &g_fw_type) != 0) {
        NX_TRACE("Upgrade check_fw error!\n");
        return 0;
    }
    NX_TRACE("check type ok.start upgrade\n");
    doSystemCmd("echo 3 > /proc/sys/vm/drop_caches;free");
    nx_systool_call_writeImage_delay();
    return 0;
}

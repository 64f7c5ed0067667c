#include "ops/image.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include <cstdio>

#include "platform/firmware.h"
#include "platform/systool.h"
#include "trace.h"

std::atomic<int> g_fw_type{0};

namespace {

constexpr int log_module = 22;
constexpr mode_t image_mode = 0777;
constexpr pid_t init_process = 1;

int check_full_image(int type, const void *image, const char *path) {
    int verdict = image_check::valid;
    if (check_fw_valid_ap(type, path) < 0) {
        verdict = image_check::invalid;
    }
    if (check_mtd_size_ap(type, path) < 0) {
        verdict = image_check::too_large;
    }
    if (check_fw_crc_ap(type, image) < 0) {
        verdict = image_check::checksum;
    }
    return verdict;
}

}  // namespace

bool ImageFile::open(int flags) {
    close();
    file = Fd(::open(image_path, O_RDWR | O_CLOEXEC | flags, image_mode));
    return static_cast<bool>(file);
}

void *ImageFile::map(size_t size) {
    void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
    if (memory == MAP_FAILED) {
        return nullptr;
    }
    image = memory;
    mapped = size;
    return image;
}

void ImageFile::close() {
    if (image != nullptr) {
        munmap(image, mapped);
        image = nullptr;
    }
    file.reset();
}

size_t get_image_file_size(const char *path) {
    if (path == nullptr) {
        NX_TRACE("arg is null.\n");
        return 0;
    }
    const File file(fopen(path, "re"));
    if (!file) {
        NX_TRACE("Can't open file:%s\n", path);
        return 0;
    }
    const long size = fseek(file.get(), 0, SEEK_END) == 0 ? ftell(file.get()) : 0;
    return size > 0 ? static_cast<size_t>(size) : 0;
}

int nx_flash_check_fw_type_and_crc_ap(const void *image, const char *path, std::atomic<int> *type) {
    if (image == nullptr) {
        NX_TRACE("arg is null.\n");
        return image_check::no_image;
    }
    const int found = check_fw_type_ap(image);
    type->store(found, std::memory_order_relaxed);
    switch (found) {
        case FW_TYPE_FULL:
        case FW_TYPE_FULL_COMPRESSED:
            return check_full_image(found, image, path);
        case FW_TYPE_PARTITION:
            return check_mtd_size_ap(found, path) < 0 ? image_check::too_large : image_check::valid;
        default:
            return image_check::invalid;
    }
}

void *nx_systool_write_image_file(void *) {
    prctl(PR_SET_NAME, "flash");
    // Nobody may hold memory or flash now, nor start again what is replaced.
    systool_kill_all_process(1, agent_process);
    monitor_stop(agent_process);
    if (flash_upgradefw_ap(image_path, g_fw_type.load(std::memory_order_relaxed)) != -1) {
        kill(init_process, SIGTERM);  // restarts the device
    } else {
        systool_reboot_if_necessary();
        log_debug_print(__func__, __LINE__, LOG_LEVEL_ERROR, log_module, "upgrade fw is fail.");
    }
    return nullptr;
}

int nx_systool_call_writeImage_delay() {
    pthread_t writer;
    const int result = pthread_create(&writer, nullptr, nx_systool_write_image_file, nullptr);
    if (result == 0) {
        pthread_detach(writer);  // nobody joins it
    }
    return result;
}

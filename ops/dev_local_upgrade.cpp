#include "ops/dev_local_upgrade.h"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "heap.h"
#include "json.h"
#include "ops/image.h"
#include "ops/nx_dev_api.h"
#include "platform/firmware.h"
#include "platform/nxapi.h"
#include "platform/systool.h"
#include "store.h"
#include "thread.h"
#include "trace.h"

namespace {

constexpr int attempts = 5;
constexpr int64_t spare_memory = 1 << 20;  // bytes, beside the image

/** True when an address is one plain word to the shell and no option to the
 *  program: the characters of an address less those that a shell interprets. */
bool is_plain_address(std::string_view url) {
    constexpr std::string_view plain =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~:/@+,=%";
    return !url.empty() && url.front() != '-' && url.front() != '~' &&
           url.find_first_not_of(plain) == std::string_view::npos;
}

/** One attempt: true when the file now has the expected size. */
bool fetch_once(const DownloadJob &job) {
    if (!is_plain_address(job.url)) {
        return false;
    }
    doSystemCmd("wget -T 240 %s -O %s", job.url, image_path);
    if (file_check_exist_or_not(image_path) == 0) {
        NX_TRACE_AS("nx_upgrade_image_download", "image file not exit, continue!\n");
        return false;
    }
    const auto size = static_cast<int64_t>(get_image_file_size(image_path));
    if (size != job.size) {
        NX_TRACE_AS("nx_upgrade_image_download", "size = %lld\tsize1 = %d \n",
                    static_cast<long long>(size), job.size);
        return false;
    }
    return true;
}

bool fetch(const DownloadJob &job) {
    for (int i = 0; i < attempts; ++i) {
        if (fetch_once(job)) {
            return true;
        }
    }
    return false;
}

int fetch_and_check(const DownloadJob &job, ImageFile &image) {
    if (!fetch(job)) {
        return download_result::not_fetched;
    }
    if (!image.open()) {
        NX_TRACE_AS("nx_upgrade_image_download", "creat /var/image error.\n");
        return download_result::not_valid;
    }
    // The size was met by a file, so it is not negative.
    const void *mapped = image.map(static_cast<size_t>(job.size));
    if (nx_flash_check_fw_type_and_crc_ap(mapped, image_path, &g_fw_type) != 0) {
        NX_TRACE_AS("nx_upgrade_image_download", "check /var/image type invalid.\n");
        return download_result::not_valid;
    }
    return download_result::done;
}

/** Tells the cloud how it went, also when there is no memory for a document. */
void send_notice(const Json &document, int code) {
    char spare[32];
    snprintf(spare, sizeof spare, "{\"resp_code\":%d}", code);
    JsonText text;
    if (json_add_number(document.get(), "resp_code", code) != nullptr) {
        text.reset(cJSON_PrintUnformatted(document.get()));
    }
    const char *notice = text ? text.get() : spare;
    dev_upgrade_notice(notice, static_cast<int>(strlen(notice)));
}

/** Stops the other processes when memory is short; false when the image will
 *  still not fit. Bytes in 64 bits: a request may announce any size. */
bool make_room(int64_t size) {
    const auto free_memory = [] { return static_cast<int64_t>(systool_get_free_memory_size()); };
    const int64_t free_before = free_memory();
    if (free_before < 2 * size) {
        NX_TRACE_AS(
            "dev_local_upgrade",
            "image size:%d(KB) | free memory size:%d(KB), must to kill other processes!!!\n",
            static_cast<int>(size / 1024), static_cast<int>(free_before / 1024));
        systool_kill_all_process(1, agent_process);
    }
    return size + spare_memory <= free_memory();
}

}  // namespace

void *nx_upgrade_image_download(void *argument) {
    Heap<DownloadJob> job(static_cast<DownloadJob *>(argument));
    const Json document = json_object();
    ImageFile image;
    const int code = document && job ? fetch_and_check(*job, image) : download_result::no_job;
    send_notice(document, code);
    job.reset();
    // A partition image and a compressed one are fetched and checked only.
    if (code == download_result::done &&
        g_fw_type.load(std::memory_order_relaxed) == FW_TYPE_FULL) {
        systool_write_image_ap(image_path, FW_TYPE_FULL);
    } else {
        systool_reboot_if_necessary();
    }
    return nullptr;
}

/** Makes room and fetches an image in the background; the outcome goes to the
 *  cloud as a notice. -1: no memory, or no thread. */
int dev_local_upgrade(cJSON *request, cJSON *) {
    const int size = cJSON_GetObjectIntValue(request, "size", -1);
    const char *url = cJSON_GetObjectStringValue(request, "url", "");
    if (!make_room(size)) {
        NX_TRACE("no enough space to download image\n");
        systool_reboot_if_necessary();
        return -1;
    }
    Heap<DownloadJob> job = heap_record<DownloadJob>();
    if (!job) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    job->size = size;
    if (strlen(url) < sizeof job->url) {  // one that is too long is not cut and fetched
        text_copy(job->url, url);
    }
    if (!start_detached("download", nx_upgrade_image_download, job.get())) {
        return -1;
    }
    static_cast<void>(job.release());  // the thread's own now
    NX_TRACE("get memory success\n");
    return 0;
}

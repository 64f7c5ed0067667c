/**
 * The download of a firmware image on a thread of its own.
 */
#ifndef OPS_DEV_LOCAL_UPGRADE_H
#define OPS_DEV_LOCAL_UPGRADE_H

#include <cstdint>

/** What the command hands to its thread; made with `heap_record`. */
struct DownloadJob {
    char url[1024]; /**< NUL-terminated; empty: nothing that may be fetched */
    int32_t size;   /**< expected size of the image, bytes */
};
static_assert(sizeof(DownloadJob) == 1028);

/** Outcomes of a download, "resp_code" of its notice to the cloud. */
namespace download_result {
constexpr int done = 0;
constexpr int not_fetched = 908; /**< no image of the right size in 5 attempts */
constexpr int not_valid = 909;   /**< the image cannot be opened or is refused */
constexpr int no_job = 910;      /**< no job record, or out of memory */
}  // namespace download_result

/** Thread body: fetches the image of the job, checks it, tells the cloud, frees
 *  the job, and writes the image or restarts the device if need be. */
void *nx_upgrade_image_download(void *job);

#endif

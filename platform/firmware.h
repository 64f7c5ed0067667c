/**
 * Firmware library: checks of an image and writing it to flash.
 * Called from the main thread (image transfer) and from the download and writer
 * threads.
 */
#ifndef PLATFORM_FIRMWARE_H
#define PLATFORM_FIRMWARE_H

#ifdef __cplusplus
extern "C" {
#endif

/** Types of an image that the agent knows. */
enum { FW_TYPE_FULL = 2, FW_TYPE_FULL_COMPRESSED = 4, FW_TYPE_PARTITION = 5 };

/** Type code of the image whose first bytes are at `image`; the image is not
 *  empty and is mapped whole. Unknown formats give 0. */
int check_fw_type_ap(const void *image);

/** Is the file at `path` a valid image of this type for this device? Below 0: no. */
int check_fw_valid_ap(int type, const char *path);

/** Does the file fit into its flash partition? Below 0: no. */
int check_mtd_size_ap(int type, const char *path);

/** Is the checksum of the image right? `image` is the mapping of "/tmp/image", as
 *  long as that file. Below 0: no. */
int check_fw_crc_ap(int type, const void *image);

/** Writes the image at `path` to flash. -1: failure. */
int flash_upgradefw_ap(const char *path, int type);

#ifdef __cplusplus
}
#endif

#endif

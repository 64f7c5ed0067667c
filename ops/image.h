/**
 * The firmware image at "/tmp/image": its checks and its way to flash.
 */
#ifndef OPS_IMAGE_H
#define OPS_IMAGE_H

#include <atomic>
#include <cstddef>

#include "file.h"

constexpr const char *image_path = "/tmp/image";

/** The agent's name among the device's processes: spared when the others are
 *  stopped to make room. */
constexpr const char *agent_process = "norvex";

/** Verdicts of `nx_flash_check_fw_type_and_crc_ap`. */
namespace image_check {
constexpr int valid = 0;
constexpr int invalid = -1; /**< unknown type, or no image for this device */
constexpr int checksum = -2;
constexpr int too_large = -3; /**< does not fit into its flash partition */
constexpr int no_image = -4;
}  // namespace image_check

/** Type code that the last check found, 0 before the first. Written by the main
 *  and the download thread, read by the writers. */
extern std::atomic<int> g_fw_type;

/** The image file, open and mapped for reading and writing. */
class ImageFile {
  public:
    ImageFile() = default;
    ImageFile(const ImageFile &) = delete;
    ImageFile &operator=(const ImageFile &) = delete;
    ~ImageFile() { close(); }

    /** Opens the file; `flags` are added to O_RDWR | O_CLOEXEC. */
    bool open(int flags = 0);

    /** Maps the first `size` bytes; null when that is none or it fails. The
     *  mapping lasts until `close`. */
    void *map(size_t size);

    /** Unmaps and closes. */
    void close();

  private:
    Fd file;
    void *image = nullptr;
    size_t mapped = 0;
};

/** Length of a file in bytes; 0 when `path` is null or it cannot be opened. */
size_t get_image_file_size(const char *path);

/**
 * Checks an image that is mapped at `image` and stands at `path`. For the full
 * types all three checks run and the last that fails decides.
 * @param image  null: no image
 * @param type   receives the type code
 * @return one of `image_check`
 */
int nx_flash_check_fw_type_and_crc_ap(const void *image, const char *path, std::atomic<int> *type);

/** Thread body: writes the image to flash and restarts the device. */
void *nx_systool_write_image_file(void *);

/** Starts that thread; the result of `pthread_create`. */
int nx_systool_call_writeImage_delay();

#endif

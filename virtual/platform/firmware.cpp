/* Checks of an image and writing it to flash: platform/firmware.h. */
#include "platform/firmware.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <vector>

#include "virtual/device/effect.h"
#include "virtual/folder/files.h"
#include "virtual/hardware/equipment.h"
#include "virtual/platform/image.h"

namespace vap {
namespace {

constexpr const char *image_path = "/tmp/image";
constexpr uint64_t most_image_bytes = 256 << 20;

FirmwareLibrary firmware_now() {
    return equipment_now()->firmware;
}

/** A file of the device that is open for reading, with its size. */
struct ImageFile {
    explicit ImageFile(const char *path) {
        struct stat info {};
        if (path != nullptr) {
            fd = Descriptor(open(host_path(path).c_str(), O_RDONLY | O_CLOEXEC));
        }
        if (fd.get() >= 0 && fstat(fd.get(), &info) == 0 && S_ISREG(info.st_mode)) {
            size = static_cast<uint64_t>(info.st_size);
        }
    }
    std::optional<ImageHeader> header() const {
        std::array<uint8_t, image_header_size> bytes{};
        const ssize_t got = pread(fd.get(), bytes.data(), bytes.size(), 0);
        return image_header({bytes.data(), static_cast<size_t>(std::max<ssize_t>(got, 0))});
    }

    Descriptor fd;
    std::optional<uint64_t> size;
};

/** The first `size` bytes of a mapping, fewer where its file has shrunk or was
 *  never as long: the system call reads them, so nothing here can fault. */
std::vector<uint8_t> mapped_bytes(const void *image, size_t size) {
    const Descriptor copy(memfd_create("image", MFD_CLOEXEC));
    size_t copied = 0;
    for (ssize_t put = 1; put > 0 && copied < size; copied += put) {
        put = write(copy.get(), static_cast<const char *>(image) + copied, size - copied);
        put = std::max<ssize_t>(put, 0);
    }
    std::vector<uint8_t> bytes(copied);
    const ssize_t got = pread(copy.get(), bytes.data(), bytes.size(), 0);
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
}

/** A verdict of the library: planned to fail, given by the description, or found
 *  by `judge`. */
int verdict(const char *op, std::optional<int> FirmwareLibrary::*given, auto judge) {
    const Inside inside;
    if (const auto fault = due_fault(op, -1)) {
        return static_cast<int>(*fault);
    }
    const FirmwareLibrary library = firmware_now();
    return library.*given ? *(library.*given) : judge(library) ? 0 : -1;
}

}  // namespace

bool write_flash(const std::string &device_path) {
    const Inside inside;
    const ImageFile image(device_path.c_str());
    if (!image.size || *image.size == 0 || *image.size > firmware_now().partition_size) {
        return false;
    }
    const std::optional<std::string> bytes = read_file(host_path(device_path));
    return bytes && replace_file(folder() / "flash", *bytes);
}

}  // namespace vap

using namespace vap;

extern "C" {

int check_fw_type_ap(const void *image) {
    const Inside inside;
    if (const auto fault = due_fault("check_fw_type_ap", 0)) {
        return static_cast<int>(*fault);
    }
    if (const std::optional<int> given = firmware_now().type) {
        return *given;
    }
    if (image == nullptr) {
        return 0;
    }
    const auto header = image_header(mapped_bytes(image, image_header_size));
    return header ? static_cast<int>(header->type) : 0;
}

int check_fw_valid_ap(int type, const char *path) {
    return verdict("check_fw_valid_ap", &FirmwareLibrary::valid, [&](const FirmwareLibrary &own) {
        const ImageFile image(path);
        const std::optional<ImageHeader> header = image.header();
        return header && header->type == static_cast<uint32_t>(type) &&
               header->length == image.size &&
               (header->model.empty() || header->model == own.model);
    });
}

int check_mtd_size_ap(int, const char *path) {
    return verdict("check_mtd_size_ap", &FirmwareLibrary::mtd_size,
                   [&](const FirmwareLibrary &own) {
                       const ImageFile image(path);
                       return image.size && *image.size <= own.partition_size;
                   });
}

int check_fw_crc_ap(int type, const void *image) {
    return verdict("check_fw_crc_ap", &FirmwareLibrary::crc, [&](const FirmwareLibrary &) {
        // The file tells how long the mapping is, whatever the header says.
        const std::optional<uint64_t> size = ImageFile(image_path).size;
        if (image == nullptr || !size || *size > most_image_bytes) {
            return false;
        }
        const std::vector<uint8_t> bytes = mapped_bytes(image, static_cast<size_t>(*size));
        const std::optional<ImageHeader> header = image_header(bytes);
        return header && header->type == static_cast<uint32_t>(type) &&
               header->length >= image_header_size && header->length <= bytes.size() &&
               header->checksum == image_checksum(std::span(bytes).first(header->length));
    });
}

int flash_upgradefw_ap(const char *path, int type) {
    return effect("flash_upgradefw_ap", Json::array({text_arg(path), type}), -1,
                  [&] { return path != nullptr && write_flash(path) ? 0 : -1; });
}

}  // extern "C"

/**
 * Firmware images of the virtual access point.
 *
 * An image is a header of 32 bytes and its content. Numbers are 32-bit
 * little-endian.
 *
 *   offset  size  field
 *        0     4  magic, "VAPI"
 *        4     4  type (2 and 4: full image, 5: one partition)
 *        8     4  length of the whole image, header included
 *       12     4  CRC-32 (as zlib computes it) of everything from offset 16 on
 *       16    16  model that the image is for, NUL-padded; empty: any
 */
#ifndef VIRTUAL_PLATFORM_IMAGE_H
#define VIRTUAL_PLATFORM_IMAGE_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vap {

constexpr size_t image_header_size = 32;
constexpr size_t image_model_max = 15; /**< characters */

struct ImageHeader {
    uint32_t type = 0;
    uint32_t length = 0;
    uint32_t checksum = 0;
    std::string model;
};

/** Header at the start of `bytes`; nothing when they are too few or no image. */
std::optional<ImageHeader> image_header(std::span<const uint8_t> bytes);

/** Checksum of a whole image, at least a header long. */
uint32_t image_checksum(std::span<const uint8_t> image);

/** A whole image of `length` bytes; throws std::invalid_argument with a sentence
 *  when that is less than the header or the model is too long. */
std::string make_image(uint32_t type, uint32_t length, const std::string &model);

/** Turns the checksum of a whole image wrong. */
void break_checksum(std::string &image);

}  // namespace vap

#endif

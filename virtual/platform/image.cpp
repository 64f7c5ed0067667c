#include "virtual/platform/image.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>

namespace vap {
namespace {

constexpr std::string_view magic = "VAPI";
enum Offset { type_at = 4, length_at = 8, checksum_at = 12, model_at = 16 };

uint32_t read_number(std::span<const uint8_t> bytes, size_t at) {
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
           static_cast<uint32_t>(bytes[at + 3]) << 24;
}

void write_number(std::string &bytes, size_t at, uint32_t number) {
    for (size_t i = 0; i < 4; i++) {
        bytes[at + i] = static_cast<char>(number >> (8 * i));
    }
}

std::span<const uint8_t> bytes_of(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

}  // namespace

std::optional<ImageHeader> image_header(std::span<const uint8_t> bytes) {
    if (bytes.size() < image_header_size ||
        !std::equal(magic.begin(), magic.end(), bytes.begin())) {
        return std::nullopt;
    }
    const auto *model = reinterpret_cast<const char *>(&bytes[model_at]);
    return ImageHeader{.type = read_number(bytes, type_at),
                       .length = read_number(bytes, length_at),
                       .checksum = read_number(bytes, checksum_at),
                       .model = std::string(model, strnlen(model, image_model_max + 1))};
}

uint32_t image_checksum(std::span<const uint8_t> image) {
    const std::span<const uint8_t> content = image.subspan(model_at);
    return static_cast<uint32_t>(crc32_z(0, content.data(), content.size()));
}

std::string make_image(uint32_t type, uint32_t length, const std::string &model) {
    if (length < image_header_size) {
        throw std::invalid_argument("an image has at least " + std::to_string(image_header_size) +
                                    " bytes");
    }
    if (model.size() > image_model_max) {
        throw std::invalid_argument("the model has more than " + std::to_string(image_model_max) +
                                    " characters");
    }
    std::string image(length, '\0');
    std::mt19937 content(length);  // the same image for the same arguments
    std::generate(image.begin() + image_header_size, image.end(),
                  [&] { return static_cast<char>(content()); });
    std::ranges::copy(magic, image.begin());
    write_number(image, type_at, type);
    write_number(image, length_at, length);
    std::ranges::copy(model, image.begin() + model_at);
    write_number(image, checksum_at, image_checksum(bytes_of(image)));
    return image;
}

void break_checksum(std::string &image) {
    write_number(image, checksum_at, ~image_checksum(bytes_of(image)));
}

}  // namespace vap

#include <filesystem>
#include <memory>

#include "tools/vap_commands.h"
#include "virtual/ap/files.h"
#include "virtual/ap/image.h"

namespace {

constexpr uint32_t most_bytes = 256 << 20;

struct Arguments {
    std::string out, model;
    uint32_t type = 2;
    uint32_t size = 0;
    bool broken = false;
};

void make(const Arguments &given) {
    std::string image = vap::make_image(given.type, given.size, given.model);
    if (given.broken) {
        vap::break_checksum(image);
    }
    if (!vap::replace_file(given.out, image)) {
        throw std::runtime_error("cannot write " + given.out);
    }
}

}  // namespace

void add_image_command(CLI::App &app) {
    CLI::App *image = app.add_subcommand("image", "Firmware images of the virtual access point");
    image->require_subcommand(1);
    CLI::App *command = image->add_subcommand("make", "Writes an image that the checks accept");
    command->footer("Example: vap image make new.img --type 2 --size 4194304");
    const auto given = std::make_shared<Arguments>();
    command->add_option("out", given->out, "File to write")->required();
    command->add_option("--type", given->type, "2, 4: full image, 5: one partition")
        ->capture_default_str();
    command->add_option("--size", given->size, "Length in bytes, header included")
        ->required()
        ->check(CLI::Range(static_cast<uint32_t>(vap::image_header_size), most_bytes));
    command->add_option("--model", given->model, "Model that it is for; any without one");
    command->add_flag("--broken-checksum", given->broken, "Make its checksum wrong");
    command->callback([given] { make(*given); });
}

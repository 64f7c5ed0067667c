#include <fcntl.h>

#include <filesystem>
#include <memory>

#include "tools/cli.h"
#include "tools/vap_commands.h"
#include "virtual/folder/files.h"
#include "virtual/platform/image.h"

namespace {

constexpr uint32_t most_bytes = 256 << 20;

struct ImageArguments {
    std::string out, model;
    uint32_t type = 2;
    uint32_t size = 0;
    bool broken = false;
};

void make(const ImageArguments &given) {
    std::string image = vap::make_image(given.type, given.size, given.model);
    if (given.broken) {
        vap::break_checksum(image);
    }
    // The place is the user's, a device or a link of theirs stays what it is.
    const vap::Descriptor file(
        open(given.out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file.get() < 0 || !vap::write_all(file.get(), image)) {
        throw tools::Failure(tools::cannot("write", given.out));
    }
}

}  // namespace

void add_image_command(CLI::App &app) {
    CLI::App *image = app.add_subcommand("image", "Firmware images of the virtual access point");
    image->require_subcommand(1);
    CLI::App *command = image->add_subcommand("make", "Writes an image that the checks accept");
    command->footer("Example: vap image make new.img --type 2 --size 4194304");
    const auto given = std::make_shared<ImageArguments>();
    command->add_option("FILE", given->out, "File to write")->required();
    command->add_option("--type", given->type, "2, 4: full image, 5: one partition")
        ->capture_default_str();
    command->add_option("--size", given->size, "Length in bytes, header included")
        ->required()
        ->check(CLI::Range(static_cast<uint32_t>(vap::image_header_size), most_bytes));
    command->add_option("--model", given->model, "Model that it is for; any without one");
    command->add_flag("--broken-checksum", given->broken, "Make its checksum wrong");
    command->callback([given] { make(*given); });
}

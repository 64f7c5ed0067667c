#include <sys/socket.h>

#include <memory>

#include "tools/cli.h"
#include "tools/vap_commands.h"
#include "virtual/folder/files.h"

namespace {

/** Longest message that the agent reads. */
constexpr size_t message_max = 1024;

struct SendArguments {
    std::filesystem::path folder;
    std::string text;
};

void send_text(const SendArguments &given) {
    if (given.text.empty() || given.text.size() > message_max) {
        throw tools::Failure("a message has 1 to 1024 bytes");
    }
    const vap::LocalAddress address(given.folder / "root/var/norvex_socket");
    const vap::Descriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(fd.get(), address.get(), address.length()) != 0) {
        throw tools::Failure(tools::cannot("reach", "the agent of " + given.folder.string()));
    }
    const ssize_t sent = send(fd.get(), given.text.data(), given.text.size(), MSG_NOSIGNAL);
    if (sent != static_cast<ssize_t>(given.text.size())) {
        throw tools::Failure(
            tools::cannot("send", "the message to the agent of " + given.folder.string()));
    }
}

}  // namespace

void add_send_command(CLI::App &app) {
    CLI::App *command = app.add_subcommand("send", "Sends a message to the agent's control socket");
    command->footer(
        "Examples:\n"
        "  vap send office DownloadCfg\n"
        "  vap send office \"norvex.log.the door is open\"");
    const auto given = std::make_shared<SendArguments>();
    command->add_option("DIR", given->folder, "Device folder")->required();
    command->add_option("TEXT", given->text, "The message")->required();
    command->callback([given] { send_text(*given); });
}

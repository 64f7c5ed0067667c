#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "tools/vap_commands.h"
#include "virtual/ap/files.h"

namespace {

struct Arguments {
    std::filesystem::path folder;
    bool follow = false;
};

/** Prints what stands behind `at`; a journal that was emptied starts again. */
void print_from(int fd, off_t &at) {
    struct stat state = {};
    if (fstat(fd, &state) == 0 && state.st_size < at) {
        at = 0;
    }
    char block[16 * 1024];
    for (ssize_t got = 0; (got = pread(fd, block, sizeof block, at)) > 0; at += got) {
        fwrite(block, 1, static_cast<size_t>(got), stdout);
    }
    fflush(stdout);
}

void print(const Arguments &given) {
    const std::filesystem::path file = given.folder / "journal.jsonl";
    const vap::Descriptor journal(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (journal.get() < 0) {
        throw std::runtime_error("no journal in " + given.folder.string());
    }
    const vap::Descriptor watch(inotify_init1(IN_CLOEXEC));
    if (given.follow && inotify_add_watch(watch.get(), file.c_str(), IN_MODIFY) < 0) {
        throw std::runtime_error("cannot watch " + file.string());
    }
    off_t at = 0;
    print_from(journal.get(), at);
    alignas(inotify_event) char events[4096];
    while (given.follow && !ferror(stdout) && read(watch.get(), events, sizeof events) > 0) {
        print_from(journal.get(), at);
    }
}

}  // namespace

void add_journal_command(CLI::App &app) {
    CLI::App *command =
        app.add_subcommand("journal", "Prints every effect of the agent on the device");
    command->footer("Example: vap journal office --follow | grep SetValue");
    const auto given = std::make_shared<Arguments>();
    command->add_option("DIR", given->folder, "Device folder")->required();
    command->add_flag("--follow", given->follow, "Go on printing until Ctrl-C");
    command->callback([given] { print(*given); });
}

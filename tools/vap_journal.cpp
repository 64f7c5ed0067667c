#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string_view>

#include "tools/cli.h"
#include "tools/vap_commands.h"
#include "virtual/folder/files.h"

namespace {

struct JournalArguments {
    std::filesystem::path folder;
    bool follow = false, secrets = false;
};

/** Ends of the configuration keys whose values are shown as stars. */
constexpr std::string_view secret_keys[] = {"psk", "passwd", "password", "secret"};

/** A line of the journal without the secret that an operation sets. */
std::string masked(std::string line) {
    for (const std::string_view key : secret_keys) {
        const std::string front = std::string(key) + "\",\"";
        const size_t found = line.find(front);
        if (found != line.npos) {
            const size_t from = found + front.size();
            size_t to = from;
            while (to < line.size() && line[to] != '"') {
                to += line[to] == '\\' ? 2 : 1;
            }
            line.replace(from, std::min(to, line.size()) - from, "***");
        }
    }
    return line;
}

/** Prints a file of the journal as it grows. */
class Printer {
  public:
    explicit Printer(bool secrets) : secrets_(secrets) {}

    /** Goes over to a file, whose begin is next. */
    bool begin(const std::filesystem::path &file) {
        fd_ = vap::Descriptor();  // first: the new one may be the last that there is
        fd_ = vap::Descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
        at_ = 0;
        rest_.clear();
        return fd_.get() >= 0;
    }

    /** Does the name still stand for this file? */
    bool is(const std::filesystem::path &file) const {
        struct stat own = {}, named = {};
        return fstat(fd_.get(), &own) == 0 && stat(file.c_str(), &named) == 0 &&
               own.st_dev == named.st_dev && own.st_ino == named.st_ino;
    }

    /** Prints the whole lines behind those printed before; a file that was emptied
     *  starts again. */
    void print() {
        struct stat state = {};
        if (fstat(fd_.get(), &state) == 0 && state.st_size < at_) {
            at_ = 0;
            rest_.clear();
        }
        char block[16 * 1024];
        for (ssize_t got = 0; (got = pread(fd_.get(), block, sizeof block, at_)) > 0; at_ += got) {
            rest_.append(block, static_cast<size_t>(got));
            size_t from = 0;
            for (size_t end = 0; (end = rest_.find('\n', from)) != rest_.npos; from = end + 1) {
                put(rest_.substr(from, end + 1 - from));
            }
            rest_.erase(0, from);
        }
        fflush(stdout);
    }

  private:
    void put(const std::string &line) const {
        const std::string shown = secrets_ ? line : masked(line);
        fwrite(shown.data(), 1, shown.size(), stdout);
    }

    vap::Descriptor fd_;
    bool secrets_;
    off_t at_ = 0;
    std::string rest_; /**< the begin of a line */
};

/** Waits for a change in the folder, a second at most: then somebody looks who could
 *  not have been told, since the watches of a user are few. */
void wait_for_change(const vap::Descriptor &watch) {
    pollfd one{watch.get(), POLLIN, 0};
    alignas(inotify_event) char events[4096];
    if (poll(&one, 1, 1000) > 0 && read(watch.get(), events, sizeof events) < 0) {
        sleep(1);
    }
}

void print(const JournalArguments &given) {
    const std::filesystem::path file = given.folder / "journal.jsonl";
    Printer journal(given.secrets);
    if (!journal.begin(file)) {
        throw tools::Failure(tools::cannot("read", file));
    }
    if (Printer former(given.secrets); former.begin(file.string() + ".1")) {
        former.print();
    }
    const vap::Descriptor watch(given.follow ? inotify_init1(IN_CLOEXEC) : -1);
    inotify_add_watch(watch.get(), given.folder.c_str(), IN_MODIFY | IN_CREATE | IN_MOVED_TO);
    journal.print();
    while (given.follow && !ferror(stdout)) {
        wait_for_change(watch);
        const bool goes_on = journal.is(file);  // asked first: then the last line is there
        journal.print();
        if (!goes_on && journal.begin(file)) {
            journal.print();
        }
    }
}

}  // namespace

void add_journal_command(CLI::App &app) {
    CLI::App *command =
        app.add_subcommand("journal", "Prints every effect of the agent on the device");
    command->footer("Example: vap journal office --follow | grep SetValue");
    const auto given = std::make_shared<JournalArguments>();
    command->add_option("DIR", given->folder, "Device folder")->required();
    command->add_flag("--follow", given->follow, "Go on printing until Ctrl-C");
    command->add_flag("--secrets", given->secrets, "Show pass phrases too");
    command->callback([given] { print(*given); });
}

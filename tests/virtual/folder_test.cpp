/**
 * A device folder: whose it is, its locks, its journal.
 */
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "platform/apmib.h"
#include "tests/support/support.h"
#include "virtual/folder/journal.h"
#include "virtual/folder/lock.h"
#include "virtual/folder/store.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using vap::Json;

class Folder : public test::Device {};

mode_t mode_of(const std::filesystem::path &path) {
    struct stat state = {};
    EXPECT_EQ(lstat(path.c_str(), &state), 0) << path;
    return state.st_mode & 07777;
}

/** Standard error while `act` runs. */
template <typename Act>
std::string said(Act act) {
    testing::internal::CaptureStderr();
    act();
    return testing::internal::GetCapturedStderr();
}

TEST_F(Folder, ANewOneIsItsOwnersAlone) {
    const mode_t before = umask(022);
    std::filesystem::create_directory(folder() / "other");
    EXPECT_EQ(mode_of(folder() / "other"), 0755u);
    vap::create_device(folder() / "other", {});
    vap::open_device(folder() / "other", {.time = vap::Time::manual, .restarts_process = false});
    set("a", "b");
    vap::patch_hardware({{"x", 1}});
    umask(before);
    EXPECT_EQ(mode_of(folder() / "other"), 0700u);
    EXPECT_EQ(mode_of(vap::folder() / "bin/ping"), 0700u);
    for (const auto &entry : std::filesystem::recursive_directory_iterator(vap::folder())) {
        if (!entry.is_socket()) {  // of this process, whose mask is its own
            EXPECT_EQ(mode_of(entry) & (S_IRWXG | S_IRWXO), 0u) << entry;
        }
    }
}

TEST_F(Folder, AnOlderOneIsClosedWhenItIsOpened) {
    const std::filesystem::path device = vap::folder();
    const auto open = [&] {
        vap::open_device(device, {.time = vap::Time::manual, .restarts_process = false});
    };
    chmod(device.c_str(), 0755);
    EXPECT_THAT(said(open), HasSubstr("closed to others"));
    EXPECT_EQ(mode_of(device), 0750u);
    EXPECT_THAT(said(open), IsEmpty());
}

TEST_F(Folder, AReplacedFileKeepsItsMode) {
    const std::filesystem::path config = vap::folder() / "config";
    for (const mode_t mode : {0640u, 0600u, 0644u}) {
        chmod(config.c_str(), mode);
        std::ofstream(config.string() + ".new") << "left over, of any mode";
        set("a", std::to_string(mode));
        EXPECT_EQ(mode_of(config), mode);
    }
}

TEST_F(Folder, TwoProcessesAtOnceAreKeptApart) {
    const vap::FolderLock first(vap::folder());
    EXPECT_TRUE(first.held());
    const std::string why = said([] {
        const vap::FolderLock second(vap::folder(), std::chrono::milliseconds(30));
        EXPECT_FALSE(second.held());
    });
    EXPECT_THAT(why, HasSubstr("process " + std::to_string(getpid()) + " ("));
}

TEST_F(Folder, WithoutItsLockNothingIsSaved) {
    std::filesystem::remove(vap::folder() / ".lock");
    std::filesystem::create_directory(vap::folder() / ".lock");
    SetValue("a", "b");
    EXPECT_THAT(said([] { EXPECT_EQ(CommitCfm(), 0); }), HasSubstr(".lock: Is a directory"));
    EXPECT_THROW(vap::patch_hardware({{"x", 1}}), std::runtime_error);
    EXPECT_FALSE(vap::Store(vap::folder() / "config").get("a"));
    EXPECT_FALSE(vap::Store(vap::folder() / "config").replace({}));
}

TEST_F(Folder, OneRunAtATime) {
    const vap::RunLock first(vap::folder());
    try {
        const vap::RunLock second(vap::folder());
        ADD_FAILURE() << "two runs";
    } catch (const std::runtime_error &error) {
        EXPECT_THAT(error.what(), HasSubstr("runs already: process " + std::to_string(getpid())));
    }
    // What this process passes on to itself is its own lock; of another folder it is not.
    first.pass_on();
    vap::create_device(folder() / "other", {});
    std::ofstream(folder() / "other/.run.lock") << "";
    EXPECT_NO_THROW(vap::RunLock(folder() / "other"));
    EXPECT_NE(getenv("VAP_RUN_LOCK"), nullptr);
    const int own = dup(atoi(getenv("VAP_RUN_LOCK")));
    setenv("VAP_RUN_LOCK", std::to_string(own).c_str(), 1);
    const vap::RunLock passed(vap::folder());
    EXPECT_EQ(fcntl(own, F_GETFD), FD_CLOEXEC) << "not for the shells of the agent";
    EXPECT_EQ(getenv("VAP_RUN_LOCK"), nullptr);
}

/** While it lives, files end at `bytes`, as if the disk were full. */
class FullDisk {
  public:
    explicit FullDisk(std::uintmax_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{static_cast<rlim_t>(bytes), before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, handler_);
    }
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;

  private:
    rlimit before_{};
    void (*handler_)(int);
};

TEST(Journal, AFullDiskTakesWholeLinesOnly) {
    const test::TempFolder place;
    vap::Journal journal(place.path());
    const Json first = {{"op", std::string(4000, 'x')}};  // longer than what is said of it
    journal.append(first);
    std::string full;
    {
        const FullDisk disk(std::filesystem::file_size(place.path() / "journal.jsonl") + 10);
        full = said([&] {
            journal.append({{"op", "torn"}, {"args", std::string(100, 'x')}});
            journal.append({{"op", "torn again"}});
        });
    }
    EXPECT_THAT(full, HasSubstr("File too large"));
    EXPECT_EQ(std::ranges::count(full, '\n'), 1);
    const std::string after = said([&] {
        journal.append({{"op", "second"}});
        journal.append({{"op", "third"}});
    });
    EXPECT_THAT(after, HasSubstr("2 lines were left out"));
    EXPECT_EQ(std::ranges::count(after, '\n'), 1);
    EXPECT_THAT(journal.lines(), ElementsAre(first, Json{{"op", "second"}}, Json{{"op", "third"}}));
}

TEST(Journal, ALineThatACrashHasCutIsDropped) {
    const test::TempFolder place;
    for (const char *text : {"{\"op\":1}\n{\"op\":", "{\"op\":1}\n"}) {
        std::ofstream(place.path() / "journal.jsonl") << text;
        vap::Journal journal(place.path());
        journal.append({{"op", 2}});
        EXPECT_THAT(journal.lines(), ElementsAre(Json{{"op", 1}}, Json{{"op", 2}}));
    }
}

TEST(Journal, KeepsTwoFilesOfItsSize) {
    const test::TempFolder place;
    vap::Journal journal(place.path(), 25);  // two lines and a half
    for (int i = 0; i < 5; ++i) {
        journal.append({{"op", i}});
    }
    EXPECT_EQ(vap::read_file(place.path() / "journal.jsonl"), "{\"op\":4}\n");
    EXPECT_EQ(vap::read_file(place.path() / "journal.jsonl.1"), "{\"op\":2}\n{\"op\":3}\n");
    EXPECT_EQ(journal.lines().size(), 3u);
    journal.append({{"op", std::string(100, 'x')}});
    EXPECT_EQ(journal.lines().size(), 2u) << "a line longer than that has a file of its own";
    journal.clear();
    EXPECT_THAT(journal.lines(), IsEmpty());
    journal.append({{"op", std::string(100, 'x')}});
    EXPECT_FALSE(std::filesystem::exists(place.path() / "journal.jsonl.1"));
}

}  // namespace

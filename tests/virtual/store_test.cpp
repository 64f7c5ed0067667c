/**
 * The configuration store: what it takes, when it is saved, what survives.
 */
#include "virtual/folder/store.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "platform/apmib.h"
#include "tests/support/support.h"

namespace {

/** Calls of a writer: written down, or ended at one of them. */
struct Power {
    std::optional<std::vector<std::string>> steps;
    int cut_at = 0;

    /** Is this the step at which the power goes? */
    bool ends(const char *step) {
        if (steps) {
            steps->push_back(step);
        }
        return cut_at > 0 && --cut_at == 0;
    }
} power;

}  // namespace

// In front of libc's, for libvap too.
extern "C" {

ssize_t write(int fd, const void *data, size_t size) {
    const bool ends = power.ends("write");
    const ssize_t done = syscall(SYS_write, fd, data, ends ? size / 2 : size);
    return ends ? (_exit(99), -1) : done;
}

int fsync(int fd) {
    return power.ends("fsync") ? (_exit(99), -1) : static_cast<int>(syscall(SYS_fsync, fd));
}

int rename(const char *from, const char *to) noexcept {
    return power.ends("rename") ? (_exit(99), -1) : renameat(AT_FDCWD, from, AT_FDCWD, to);
}

}  // extern "C"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

class Store : public test::Device {
  protected:
    std::filesystem::path file() const { return vap::folder() / "config"; }

    static std::string text_of(const std::filesystem::path &path) {
        return vap::read_file(path).value_or("(none)");
    }

    static void write(const std::filesystem::path &path, const std::string &text) {
        std::ofstream(path, std::ios::binary) << text;
    }
};

std::string value(const char *key) {
    char text[APMIB_VALUE_MAX];
    memset(text, 'x', sizeof text);
    return GetValue(key, text) != 0 ? text : "(absent)" + std::string(text);
}

struct Taken {
    std::string key, value;
    bool taken;
    const char *why;
};

TEST_F(Store, TakesOnlyWhatItCanKeep) {
    const Taken rows[] = {
        {"a.b", "", true, "an empty value is a value"},
        {"a.b", "x=y \\n \\ \n\r\n end ", true, "line ends and backslashes are written escaped"},
        {"a.b", "Gr\xc3\xbc\xc3\x9f Gott \xe4\xbd\xa0", true, "UTF-8"},
        {"a.b", "\xff\xfe", false, "no text"},
        {"a.b", std::string(APMIB_VALUE_MAX - 1, 'v'), true, "the longest value"},
        {"a.b", std::string(APMIB_VALUE_MAX, 'v'), false, "one byte longer"},
        {std::string(APMIB_KEY_MAX - 1, 'k'), "v", true, "the longest key"},
        {std::string(APMIB_KEY_MAX, 'k'), "v", false, "one byte longer"},
        {"", "v", false, "no key"},
        {"a=b", "v", false, "would read back as another key"},
        {"a\nb", "v", false, "would break the line"},
    };
    for (const Taken &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(SetValue(row.key.c_str(), row.value.c_str()) != 0, row.taken);
        if (row.taken) {
            EXPECT_EQ(value(row.key.c_str()), row.value);
            EXPECT_NE(CommitCfm(), 0);
            EXPECT_THAT(vap::Store(file()).get(row.key), Optional(row.value));
        }
    }
    EXPECT_EQ(SetValue(nullptr, "v"), 0);
    EXPECT_EQ(SetValue("a.b", nullptr), 0);
    EXPECT_EQ(value("no.such.key"), "(absent)");
}

TEST_F(Store, PendingWritesAreSeenAtOnceAndSavedByTheNextCommit) {
    SetValue("lan.ip", "10.0.0.9");
    EXPECT_EQ(value("lan.ip"), "10.0.0.9");
    EXPECT_THAT(vap::Store(file()).get("lan.ip"), Optional(std::string("192.168.188.253")));
    std::thread([] { CommitCfm(); }).join();  // one pending set for all threads
    EXPECT_THAT(vap::Store(file()).get("lan.ip"), Optional(std::string("10.0.0.9")));
    SetValue("lan.ip", "10.0.0.10");
    vap::open_device(vap::folder(), {.time = vap::Time::manual, .restarts_process = false});
    EXPECT_EQ(value("lan.ip"), "10.0.0.9") << "a restart forgets what was not committed";
}

TEST_F(Store, FileIsSortedAndReadable) {
    write(file(), "b=2\na=1\n");
    SetValue("a.b", "two\nlines");
    EXPECT_NE(CommitCfm(), 0);
    EXPECT_EQ(text_of(file()), "a=1\na.b=two\\nlines\nb=2\n");
}

TEST_F(Store, WritersDoNotLoseEachOthersValues) {
    SetValue("mine", "1");
    vap::Store tool(file());
    EXPECT_TRUE(tool.set_now("theirs", "2"));
    EXPECT_NE(CommitCfm(), 0);
    EXPECT_TRUE(tool.set_now("theirs.too", "3"));
    vap::Store after(file());
    for (const char *key : {"mine", "theirs", "theirs.too", "lan.ip"}) {
        EXPECT_TRUE(after.get(key)) << key;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(value("theirs.too"), "3") << "a change under the agent is noticed";
}

TEST_F(Store, TheNewerWriteHolds) {
    SetValue("lan.ip", "10.0.0.9");
    SetValue("mine", "1");
    vap::Store(file()).set_now("lan.ip", "10.0.0.10");
    EXPECT_NE(CommitCfm(), 0);
    EXPECT_EQ(value("lan.ip") + " " + value("mine"), "10.0.0.10 1");

    vap::Store(file()).set_now("lan.ip", "10.0.0.11");
    SetValue("lan.ip", "10.0.0.12");  // before the change on disk was noticed otherwise
    EXPECT_NE(CommitCfm(), 0);
    EXPECT_EQ(value("lan.ip"), "10.0.0.12");

    SetValue("lan.ip", "10.0.0.13");
    set("lan.ip", "10.0.0.14");
    EXPECT_EQ(value("lan.ip"), "10.0.0.14") << "also from this process";
}

TEST_F(Store, AShownValueIsNeverSaved) {
    vap::Store store(file());
    store.show("nx.debug", "1");
    EXPECT_THAT(store.get("nx.debug"), Optional(std::string("1")));
    store.set("nx.debug", "2");
    EXPECT_THAT(store.get("nx.debug"), Optional(std::string("2")));
    EXPECT_TRUE(store.replace({{"a", "b"}}));
    EXPECT_THAT(store.get("nx.debug"), Optional(std::string("1"))) << "nothing is pending";
    EXPECT_TRUE(store.commit());
    EXPECT_EQ(text_of(file()), "a=b\n");
}

TEST_F(Store, SaysWhatIsWrongWithALine) {
    struct Row {
        std::string line;
        const char *why;
    };
    for (const Row &row :
         {Row{"no equals sign", "no \"key=value\""}, Row{"=v", "no key"},
          Row{"a b=v", "a key with a blank"}, Row{"\xff=v", "a key that is not UTF-8"},
          Row{std::string(APMIB_KEY_MAX, 'k') + "=v", "a key longer than 95"},
          Row{"k=secret\\q", "a backslash that begins none of"},
          Row{"k=secret\\", "a backslash that begins none of"},
          Row{"k=secret\r", "a carriage return"}, Row{"k=secret\xff", "a value that is not UTF-8"},
          Row{"k=" + std::string(APMIB_VALUE_MAX, 'v'), "longer than 1023"}}) {
        std::string why;
        EXPECT_FALSE(vap::parse_values("fine=1\n" + row.line + "\n", &why));
        EXPECT_THAT(why, testing::StartsWith("line 2: ")) << row.line;
        EXPECT_THAT(why, HasSubstr(row.why));
        EXPECT_THAT(why, testing::Not(HasSubstr("secret")));
    }
}

TEST_F(Store, FailedCommitKeepsThePendingSet) {
    const std::string before = text_of(file());
    SetValue("lan.ip", "10.0.0.9");
    vap::fail("CommitCfm");
    EXPECT_EQ(CommitCfm(), 0);
    EXPECT_EQ(text_of(file()), before);

    // Nothing can be written where a folder stands in the way.
    std::filesystem::create_directory(file().string() + ".new");
    EXPECT_EQ(CommitCfm(), 0);
    EXPECT_EQ(text_of(file()), before);
    EXPECT_EQ(value("lan.ip"), "10.0.0.9");
    std::filesystem::remove(file().string() + ".new");

    // A file broken by hand is never overwritten.
    write(file(), "no equals sign\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(CommitCfm(), 0);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("config, line 1"));
    EXPECT_EQ(text_of(file()), "no equals sign\n");
    EXPECT_EQ(value("lan.mask"), "255.255.255.0") << "the values read before stay in use";

    write(file(), before);
    EXPECT_NE(CommitCfm(), 0);
    EXPECT_THAT(vap::Store(file()).get("lan.ip"), Optional(std::string("10.0.0.9")));
}

/** At each step in turn, the last one half done, a process loses its power. */
TEST_F(Store, APowerCutLeavesTheOldOrTheNewFile) {
    const std::string before = text_of(file());
    vap::Values values = *vap::parse_values(before);
    values["a"] = values["z"] = std::string(500, '.');
    const std::string after = vap::print_values(values);
    bool cut = true;
    for (int step = 1; cut; ++step) {
        const pid_t writer = fork();
        if (writer == 0) {
            vap::Store store(file());
            store.set("a", values["a"]);
            store.set("z", values["z"]);
            power.cut_at = step;
            _exit(store.commit() ? 0 : 1);
        }
        int status = 0;
        waitpid(writer, &status, 0);
        cut = status == 99 << 8;
        ASSERT_TRUE(cut || status == 0) << step;
        const std::string text = text_of(file());
        ASSERT_TRUE(text == after || (cut && text == before)) << "cut at step " << step;
    }
}

TEST_F(Store, ReachesTheDiskBeforeItTakesThePlaceOfTheOldFile) {
    power.steps.emplace();
    vap::Store(file(), vap::Lasting::machine).set_now("a", "b");
    EXPECT_THAT(*std::exchange(power.steps, {}), ElementsAre("write", "fsync", "rename", "fsync"));
}

TEST_F(Store, FactoryValuesStandApart) {
    char text[APMIB_VALUE_MAX];
    EXPECT_NE(ApmibGetValue("ZQ_ATE_SN", text), 0);
    EXPECT_STREQ(text, "NXT0000000001");
    EXPECT_NE(ApmibSetValue("ZQ_ATE_SN", "NEW1"), 0);
    EXPECT_NE(ApmibCommitCfm(), 0);
    EXPECT_THAT(vap::Store(vap::folder() / "factory").get("ZQ_ATE_SN"),
                Optional(std::string("NEW1")));
    EXPECT_EQ(value("ZQ_ATE_SN"), "(absent)");
}

TEST_F(Store, WithoutADeviceEveryCallRefuses) {
    vap::close_device();
    unsetenv("VAP_DEVICE");
    testing::internal::CaptureStderr();
    EXPECT_EQ(apmib_init(), 0);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::HasSubstr("VAP_DEVICE names no device folder"));
    EXPECT_EQ(value("lan.ip"), "(absent)");
    EXPECT_EQ(SetValue("a", "b"), 0);
    EXPECT_EQ(CommitCfm(), 0);
}

}  // namespace

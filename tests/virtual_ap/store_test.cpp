/**
 * The configuration store: what it takes, when it is saved, what survives.
 */
#include "virtual/ap/store.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "platform/apmib.h"
#include "tests/support/support.h"

namespace {

using testing::ElementsAre;
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

TEST_F(Store, KilledWriterLeavesAWholeFile) {
    const std::filesystem::path path = file();
    for (int round = 0; round < 15; ++round) {
        const pid_t writer = fork();
        if (writer == 0) {
            vap::Store store(path);
            for (int i = 0;; ++i) {
                store.set("one", std::to_string(i) + std::string(500, '.'));
                store.set("other", std::to_string(i) + std::string(500, '.'));
                store.commit();
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + round));
        kill(writer, SIGKILL);
        waitpid(writer, nullptr, 0);
        vap::Store store(path);  // throws if the file is not whole
        ASSERT_EQ(store.get("one"), store.get("other"));
        ASSERT_TRUE(store.get("lan.ip"));
        ASSERT_TRUE(store.set_now("round", std::to_string(round)));
    }
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

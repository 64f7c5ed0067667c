#include "cloud/config_file.h"

#include <unistd.h>

#include "core/cloud_api.h"
#include "platform/apmib.h"
#include "platform/nxapi.h"
#include "tests/support/support.h"
#include "thread.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string marker = "#The word of \"Default\" must not be removed";
const std::string leading = marker + "\nDefault\n";

std::string head(std::string text) {
    text.resize(config_head_size, '\0');
    return text;
}

/** The answer, with the NUL that the library is given, too; "" without one. */
std::string sync(const char *file) {
    const nxapi::Answer answer = nxapi::call("cloud", 2, file);
    EXPECT_EQ(answer.result, answer.response ? 0 : -1);
    return answer.response.value_or("");
}

const std::string refused("{\n\t\"resp_code\":\t-1\n}\0", 21);
const std::string taken("{\n\t\"resp_code\":\t0\n}\0", 20);

class ConfigSync : public test::Device {
  protected:
    ConfigSync() {
        cloud_api();
        effects();
    }

    /** A file for this device that sets one key. */
    std::string file() { return leading + "ap.apname=" + get("ap.apname") + "\nsync.key=new"; }

    /** Virtual seconds from the import until the restart. */
    static double wait_before_restart() {
        double imported = -1;
        for (const vap::Json &line : vap::journal()) {
            if (line.at("op") == "systool_file_handle") {
                imported = line.at("time").get<double>();
            } else if (line.at("op") == "systool_sys_handle") {
                return line.at("time").get<double>() - imported;
            }
        }
        return -1;
    }
};

TEST_F(ConfigSync, ImportsCommitsAndRestarts) {
    set("lan.ip", "192.0.2.1");
    EXPECT_EQ(sync(file().c_str()), taken);
    EXPECT_EQ(wait_before_restart(), 0);
    EXPECT_EQ(get("sync.key"), "new");
    EXPECT_THAT(effects({"CommitCfm", "systool_sys_handle"}),
                ElementsAre("CommitCfm", "systool_sys_handle 0"));
}

TEST_F(ConfigSync, RefusesWhatIsNotForThisDevice) {
    set("ap.apname", "ZX-A5");
    for (const std::string &other : {std::string(), std::string("ap.apname=ZX-A5\n"),
                                     "#the" + file().substr(4),  // letter case
                                     marker.substr(0, 41), marker.substr(0, 41) + file().substr(42),
                                     leading + "ap.apname=ZX-A6\nsync.key=new\n"}) {
        EXPECT_EQ(sync(other.c_str()), refused) << other;
        EXPECT_THAT(effects(), IsEmpty()) << other;
    }
    EXPECT_EQ(sync(nullptr), refused);
}

TEST_F(ConfigSync, RefusesEverythingWhileTheDeviceIsManagedLocally) {
    set("nx.manage.en", "1");
    set("nx.manage.mode", "2");
    EXPECT_EQ(sync(file().c_str()), refused);
    EXPECT_THAT(effects(), IsEmpty());
    set("nx.manage.en", "0");  // not managed at all: the mode does not count
    EXPECT_EQ(sync(file().c_str()), taken);
}

TEST_F(ConfigSync, ReportsAnImportThatThePlatformRefused) {
    vap::fail("systool_file_handle");
    EXPECT_EQ(sync(file().c_str()), refused);
    EXPECT_THAT(effects({"CommitCfm", "systool_sys_handle"}), IsEmpty());
}

void *bring_lan_up(void *) {
    usleep(3'500'000);
    SetValue("lan.ip", "192.0.2.1");
    return nullptr;
}

TEST_F(ConfigSync, WaitsTenSecondsAtMostForALanAddress) {
    set("lan.ip", "");
    EXPECT_EQ(sync(file().c_str()), taken);
    EXPECT_EQ(wait_before_restart(), 10);
    EXPECT_THAT(effects({"CommitCfm", "systool_sys_handle"}),
                ElementsAre("CommitCfm", "systool_sys_handle 0"));
    ASSERT_TRUE(start_detached("dhcp", bring_lan_up));
    vap::settle();
    EXPECT_EQ(sync(file().c_str()), taken);
    EXPECT_EQ(wait_before_restart(), 4);
}

TEST_F(ConfigSync, DoesNotRestartWithoutAnAnswer) {
    std::string answer;
    test::fail_each_allocation([&] { answer = sync(file().c_str()); },
                               [&](bool passed) {
                                   EXPECT_EQ(answer, passed ? taken : "");
                                   EXPECT_THAT(effects({"systool_sys_handle"}),
                                               SizeIs(passed ? 1 : 0));
                               });
}

const ConfigExport exported{"/tmp/config.export"};

class ConfigUpload : public test::Device {
  protected:
    /** Uploads a file of this content and gives back what the cloud got. */
    std::string uploaded(const std::string &content) {
        write_file(exported.path, content);
        EXPECT_EQ(upload_config(exported, config_body_size(exported), "name", nx_api_config_upload),
                  0);
        return uploads("nx_api_config_upload").back().data;
    }
};

TEST_F(ConfigUpload, SendsTheExportBehindItsName) {
    set("some.key", "some value");
    EXPECT_EQ(norvex_config_upload(), 0);
    const std::string content = read_file(exported.path);
    EXPECT_THAT(content, HasSubstr("some.key=some value\n"));
    ASSERT_THAT(uploads("nx_api_config_upload"), SizeIs(1));
    EXPECT_EQ(uploads("nx_api_config_upload")[0].data, head("APCfm.cfg") + leading + content);
}

TEST_F(ConfigUpload, CopiesEveryLine) {
    for (const std::string &content :
         {std::string("123456789\n123456789\n123456789\n"), std::string("no line end"),
          std::string(1022, 'a') + "\n" + std::string(1023, 'b') + "\n" + std::string(3000, 'c')}) {
        EXPECT_EQ(uploaded(content), head("name") + leading + content);
    }
}

TEST_F(ConfigUpload, SendsTheHeadAloneWithoutAFile) {
    EXPECT_EQ(config_body_size(exported), 0U);
    // A head that is far too long would run over all of the heap's end.
    const std::string longer(1 << 20, 'x');
    EXPECT_EQ(upload_config(exported, 0, longer.c_str(), nx_api_config_upload), 0);
    EXPECT_EQ(uploads("nx_api_config_upload").back().data, std::string(32, 'x'));
}

TEST_F(ConfigUpload, LeavesOutWhatTheFileHasGrownBy) {
    for (const std::string before : {"", "one\n", "one\ntw"}) {
        write_file(exported.path, before);
        const size_t size = config_body_size(exported);
        write_file(exported.path, "one\ntwo\nthree\n");
        EXPECT_EQ(upload_config(exported, size, "name", nx_api_config_upload), 0);
        EXPECT_EQ(uploads("nx_api_config_upload").back().data,
                  head("name") + leading + std::string("one\ntwo\nthree\n", before.size()));
    }
}

TEST_F(ConfigUpload, FailsWhenItIsRefusedOrThereIsNoExport) {
    refuse("nx_api_config_upload");
    EXPECT_EQ(norvex_config_upload(), -1);
    vap::fail("systool_file_handle", 1, 2);
    EXPECT_EQ(norvex_config_upload(), 0) << "without an export and without tracing";
    int result = 0;
    const std::string output = output_of([&] { result = norvex_config_upload(); });
    EXPECT_EQ(result, static_cast<int>(output.size()));
    EXPECT_GT(result, 0);
}

TEST_F(ConfigUpload, TellsThatTheDeviceIsManagedLocally) {
    EXPECT_EQ(norvex_mode_change_upload(), 0);
    ASSERT_THAT(uploads("nx_api_manage_info_upload"), SizeIs(1));
    EXPECT_EQ(uploads("nx_api_manage_info_upload")[0].data, "{\n\t\"manage\":\t2\n}");
    refuse("nx_api_manage_info_upload");
    EXPECT_EQ(norvex_mode_change_upload(), -1);
}

}  // namespace

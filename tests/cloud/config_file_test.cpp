#include "cloud/config_file.h"

#include <unistd.h>

#include "platform/apmib.h"
#include "platform/nxapi.h"
#include "tests/support/support.h"
#include "thread.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const std::string marker = "#The word of \"Default\" must not be removed";
const std::string leading = marker + "\nDefault\n";

std::string head(std::string text) {
    text.resize(config_head_size, '\0');
    return text;
}

struct SyncAnswer {
    int result;
    std::string text;  // the NUL that the library is given, too
};

SyncAnswer sync(const char *file) {
    char *text = nullptr;
    int length = 0;
    const int result = config_sync(nullptr, 3, file, &text, &length, nullptr);
    SyncAnswer answer{result,
                      std::string(text != nullptr ? text : "", static_cast<size_t>(length))};
    cJSON_free(text);
    return answer;
}

const std::string refused("{\n\t\"resp_code\":\t-1\n}\0", 21);
const std::string taken("{\n\t\"resp_code\":\t0\n}\0", 20);

class ConfigSync : public test::Device {
  protected:
    /** A file for this device that sets one key. */
    std::string file() { return leading + "ap.apname=" + get("ap.apname") + "\nsync.key=new\n"; }

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
    const SyncAnswer answer = sync(file().c_str());
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.text, taken);
    EXPECT_EQ(wait_before_restart(), 0);
    EXPECT_EQ(get("sync.key"), "new");
    EXPECT_THAT(effects({"CommitCfm", "systool_sys_handle"}),
                ElementsAre("CommitCfm", "systool_sys_handle 0"));
}

TEST_F(ConfigSync, RefusesWhatIsNotForThisDevice) {
    set("ap.apname", "ZX-A5");
    struct Row {
        std::string file;
        const char *trace;
    } const rows[] = {
        {"", "norvex in_data is NULL!\n"},
        {"ap.apname=ZX-A5\n", "the norvex download cfg is wrong!\n"},
        {"#the" + file().substr(4), "the norvex download cfg is wrong!\n"},  // letter case
        {"\n" + file(), "the norvex download cfg is wrong!\n"},
        {marker.substr(0, 41), "the norvex download cfg is wrong!\n"},
        {leading + "ap.apname=ZX-A6\nsync.key=new\n", "product name error !\n"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.file);
        SyncAnswer answer;
        const std::string output = output_of([&] { answer = sync(row.file.c_str()); });
        EXPECT_EQ(answer.result, 0);
        EXPECT_EQ(answer.text, refused);
        EXPECT_THAT(output, HasSubstr(std::string(" : ") + row.trace));
        EXPECT_THAT(output, HasSubstr(" : ########## *out = {\n\t\"resp_code\":\t-1\n} \n"));
        EXPECT_THAT(effects(), IsEmpty());
    }
    EXPECT_EQ(sync(nullptr).text, refused);
    EXPECT_EQ(get("sync.key"), "(absent)");
}

TEST_F(ConfigSync, RefusesEverythingWhileTheDeviceIsManagedLocally) {
    set("nx.manage.en", "1");
    set("nx.manage.mode", "2");
    EXPECT_EQ(sync(file().c_str()).text, refused);
    EXPECT_THAT(effects(), IsEmpty());
    set("nx.manage.en", "0");  // not managed at all: the mode does not count
    EXPECT_EQ(sync(file().c_str()).text, taken);
}

TEST_F(ConfigSync, ReportsAnImportThatThePlatformRefused) {
    vap::fail("systool_file_handle");
    EXPECT_EQ(sync(file().c_str()).text, refused);
    EXPECT_THAT(effects({"CommitCfm", "systool_sys_handle"}), IsEmpty());
}

TEST_F(ConfigSync, WaitsTenSecondsForALanAddress) {
    set("lan.ip", "");
    EXPECT_EQ(sync(file().c_str()).text, taken);
    EXPECT_EQ(wait_before_restart(), 10);
    EXPECT_THAT(effects({"CommitCfm", "systool_sys_handle"}),
                ElementsAre("CommitCfm", "systool_sys_handle 0"));
}

void *bring_lan_up(void *) {
    usleep(3'500'000);
    SetValue("lan.ip", "192.0.2.1");
    return nullptr;
}

TEST_F(ConfigSync, RestartsAsSoonAsTheLanHasAnAddress) {
    set("lan.ip", "");
    ASSERT_TRUE(start_detached("dhcp", bring_lan_up));
    vap::settle();
    EXPECT_EQ(sync(file().c_str()).text, taken);
    EXPECT_EQ(wait_before_restart(), 4);
}

TEST_F(ConfigSync, LosesNothingWhenAnAllocationFails) {
    set("lan.ip", "192.0.2.1");
    const std::string good = file();
    for (const std::string &input : {good, std::string("no file")}) {
        SyncAnswer answer;
        const int runs =
            test::fail_each_allocation([&] { answer = sync(input.c_str()); },
                                       [&](bool passed) {
                                           EXPECT_EQ(answer.result, passed ? 0 : -1);
                                           EXPECT_EQ(answer.text.empty(), !passed);
                                           EXPECT_THAT(effects({"systool_sys_handle"}),
                                                       SizeIs(passed && input == good ? 1 : 0))
                                               << "no restart without an answer";
                                       });
        EXPECT_GT(runs, 3);
    }
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
    int result = -1;
    const std::string output = output_of([&] { result = norvex_config_upload(); });
    EXPECT_EQ(result, 0);
    EXPECT_THAT(output, HasSubstr(" : filename=/tmp/config.export\n"));
    const std::string content = read_file(exported.path);
    EXPECT_THAT(content, HasSubstr("some.key=some value\n"));
    ASSERT_THAT(uploads("nx_api_config_upload"), SizeIs(1));
    const std::string data = uploads("nx_api_config_upload")[0].data;
    EXPECT_EQ(data, head("APCfm.cfg") + leading + content);
    const std::string body_size = std::to_string(data.size() - config_head_size);
    EXPECT_THAT(output, HasSubstr(" : Config Length = [" + body_size + "]\n\n"));
    EXPECT_THAT(output, HasSubstr(" : ap_config upload norvex succeed! apconfig_len = " +
                                  std::to_string(data.size()) + "\n"));
}

TEST_F(ConfigUpload, CopiesEveryLine) {
    const std::string rows[] = {
        "",
        "123456789\n123456789\n123456789\n",
        "no line end",
        std::string(1022, 'a') + "\n" + std::string(1023, 'b') + "\n" + std::string(1024, 'c'),
        std::string(100'000, 'd') + "\n\n\n",
    };
    for (const std::string &content : rows) {
        EXPECT_EQ(uploaded(content), head("name") + leading + content);
    }
    EXPECT_EQ(uploaded(rows[1]).size(), 113U);
}

TEST_F(ConfigUpload, SendsTheHeadAloneWithoutAFile) {
    EXPECT_EQ(config_body_size(exported), 0U);
    EXPECT_EQ(upload_config(exported, 0, "name", nx_api_config_upload), 0);
    EXPECT_EQ(uploads("nx_api_config_upload").back().data, head("name"));
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

TEST_F(ConfigUpload, TellsWhatWentWrong) {
    refuse("nx_api_config_upload");
    int result = 0;
    EXPECT_THAT(output_of([&] { result = norvex_config_upload(); }),
                EndsWith(" : ap_config upload norvex err!\n"));
    EXPECT_EQ(result, -1);
    vap::fail("systool_file_handle", 1, 2);
    EXPECT_EQ(norvex_config_upload(), 0) << "without an export and without tracing";
    const std::string output = output_of([&] { result = norvex_config_upload(); });
    EXPECT_THAT(output, EndsWith(" : filename is NULL!\n"));
    EXPECT_EQ(result, static_cast<int>(output.size()));
}

class ModeChange : public test::Device {};

TEST_F(ModeChange, TellsTheCloud) {
    int result = -1;
    EXPECT_THAT(output_of([&] { result = norvex_mode_change_upload(); }),
                EndsWith(" : norvex_mode_change_upload succeed! out:{\n\t\"manage\":\t2\n}\n"));
    EXPECT_EQ(result, 0);
    ASSERT_THAT(uploads("nx_api_manage_info_upload"), SizeIs(1));
    EXPECT_EQ(uploads("nx_api_manage_info_upload")[0].data, "{\n\t\"manage\":\t2\n}");
    refuse("nx_api_manage_info_upload");
    EXPECT_EQ(norvex_mode_change_upload(), -1);
}

TEST_F(ModeChange, SendsNothingWhenAnAllocationFails) {
    int result = 0;
    test::fail_each_allocation([&] { result = norvex_mode_change_upload(); },
                               [&](bool passed) { EXPECT_EQ(result, passed ? 0 : -1); });
    EXPECT_THAT(uploads("nx_api_manage_info_upload"), SizeIs(1));
}

}  // namespace

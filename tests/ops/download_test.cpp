#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

const std::string succeeded = "{\n\t\"resp_code\":\t0\n}";
const std::string failed = "{\n\t\"resp_code\":\t-1\n}";

class Download : public test::Device {
  protected:
    /** The categories that differ from these stamps of the cloud. */
    std::string differing(const std::string &time_array) {
        const vap::Json response = answer(
            timestamp_download, R"({"timestamp":1700000000,"time_array":)" + time_array + "}");
        EXPECT_EQ(response.at("resp_code"), 0);
        return response.at("mode");
    }

    void stamp(const char *net, const char *wireless, const char *maint) {
        set("nx.net_timestamp", net);
        set("nx.wireless_timestamp", wireless);
        set("nx.maint_timestamp", maint);
    }
};

TEST_F(Download, TakesTheCloudsClock) {
    set("nx.manage.mode", "1");
    vap::advance(500);
    EXPECT_EQ(call(timestamp_download, R"({"timestamp":1700000000,"time_zone":"+3","region":12,
                  "time_array":[]})"),
              "{\n\t\"mode\":\t\"\",\n\t\"manage_mode\":\t1,\n\t\"resp_code\":\t0\n}");
    EXPECT_THAT(
        effects(),
        ElementsAre("SetValue sys.up.timestamp 1699999500", "updaet_local_wireless_timestamp ",
                    "SetValue sys.region_index 12", "SetValue sys.timezone 15",
                    "SetValue sys.timesyn 1", "CommitCfm", "send_msg_to_netctrl 24 op=3"));
    vap::fail("CommitCfm");
    differing("[]");
    EXPECT_THAT(effects(),
                ElementsAre("SetValue sys.up.timestamp 1699999500",
                            "updaet_local_wireless_timestamp ", "SetValue sys.region_index 38",
                            "SetValue sys.timezone 20", "SetValue sys.timesyn 1", "CommitCfm"));
    differing("[]");
    EXPECT_THAT(effects(),
                ElementsAre("SetValue sys.up.timestamp 1699999500",
                            "updaet_local_wireless_timestamp ", "SetValue sys.region_index 38"))
        << "the zone is as it was: nothing is committed";
}

TEST_F(Download, KeepsTheClockIn32Bits) {
    vap::advance(500);
    struct Row {
        const char *timestamp;
        const char *stored;
    } const rows[] = {
        {"100", "-400"},
        {"-2147483648", "2147483148"},  // wraps
        {"4294967297.9", "-499"},
        {"2147483647", "2147483147"},
    };
    for (const Row &row : rows) {
        call(timestamp_download,
             R"({"time_array":[],"timestamp":)" + std::string(row.timestamp) + "}");
        EXPECT_EQ(get("sys.up.timestamp"), row.stored);
    }
}

TEST_F(Download, RefusesARequestWithoutClockOrStamps) {
    struct Row {
        const char *request;
        const char *trace;
    } const rows[] = {
        {"", "the cJSON_GetObjectItem err!"},
        {R"({"timestamp":5})", "the cJSON_GetObjectItem err!"},
        {R"({"timestamp":5,"time_array":{"mode":1}})", "the cJSON_GetObjectItem err!"},
        {R"({"time_array":[]})", "get timestamp_gmt0 is err!"},
        {R"({"time_array":[],"timestamp":0})", "get timestamp_gmt0 is err!"},
        {R"({"time_array":[],"timestamp":"5"})", "get timestamp_gmt0 is err!"},
        {R"({"time_array":[],"timestamp":4294967296})", "get timestamp_gmt0 is err!"},
    };
    for (const Row &row : rows) {
        EXPECT_THAT(output_of([&] { EXPECT_EQ(call(timestamp_download, row.request), failed); }),
                    HasSubstr(std::string("] : ") + row.trace + "\n"));
        EXPECT_THAT(effects(), IsEmpty()) << row.request;
    }
}

TEST_F(Download, NamesTheCategoriesThatDiffer) {
    const char *const names[] = {"",
                                 "net",
                                 "wireless",
                                 "net,wireless",
                                 "devicemain",
                                 "net,devicemain",
                                 "wireless,devicemain",
                                 "all"};
    for (size_t differ = 0; differ < std::size(names); ++differ) {
        // older, newer and missing stamps differ alike
        stamp((differ & 1) != 0 ? "11" : "10", (differ & 2) != 0 ? "19" : "20",
              (differ & 4) != 0 ? "" : "30");
        EXPECT_EQ(differing(R"([{"mode":0,"timestamp":10},{"mode":1,"timestamp":20},
            {"mode":2,"timestamp":30}])"),
                  names[differ]);
    }
}

TEST_F(Download, ReadsTheStampsOfTheCloud) {
    struct Row {
        const char *why;
        const char *time_array;
        const char *answer;
    } const rows[] = {
        {"a category that is not named has stamp 0", "[]", "wireless,devicemain"},
        {"the last stamp of a category counts",
         R"([{"mode":1,"timestamp":5},{"mode":1,"timestamp":20},{"mode":2,"timestamp":30}])", ""},
        {"a missing mode is the network", R"([{"timestamp":1}])", "all"},
        {"other modes are not looked at",
         R"([{"mode":3,"timestamp":1},{"mode":-1,"timestamp":1},{"mode":2,"timestamp":30},
             {"mode":1,"timestamp":20}])",
         ""},
        {"what is no object is the network with stamp 0",
         R"([7,null,{"mode":2,"timestamp":30},[],{"mode":1,"timestamp":20}])", ""},
        {"a stamp as text is missing", R"([{"mode":1,"timestamp":"20"},{"mode":2,"timestamp":30}])",
         "wireless"},
    };
    stamp("", "20x", "30");
    for (const Row &row : rows) {
        EXPECT_EQ(differing(row.time_array), row.answer) << row.why;
    }
    std::string many = "[{}";
    for (int i = 0; i < 1'000'000; ++i) {
        many += ",{}";
    }
    EXPECT_EQ(differing(many + "]"), "wireless,devicemain") << "one pass over the elements";
}

TEST_F(Download, EndsWhenNoCategoryDiffers) {
    const std::string stamps = R"([{"mode":1,"timestamp":100},{"mode":2,"timestamp":200}])";
    EXPECT_EQ(differing(stamps), "wireless,devicemain");
    EXPECT_EQ(call(server_config_download, R"({"net":{"timestamp":1},"wireless":{"timestamp":100,
        "wireless_config":{"radio1":[{"ssid":"Home","ssidenable":1}]}}})"),
              succeeded);
    EXPECT_EQ(differing(stamps), "devicemain");
    EXPECT_EQ(call(server_config_download, R"({"maint":{"timestamp":200,"mainetmode":0}})"),
              succeeded);
    EXPECT_EQ(differing(stamps), "");
    EXPECT_EQ(get("wl2g.ssid0.ssid"), "Home");
}

TEST_F(Download, AppliesWhatIsThere) {
    struct Row {
        const char *why;
        const char *request;
        Lines lines;
    } const rows[] = {
        {"nothing", "{}", {}},
        {"the network is not for access points", R"({"net":{"timestamp":5,"lan":{}}})", {}},
        {"wireless first, whatever the order in the text",
         R"({"maint":{"mainetmode":0},"wireless":{"timestamp":5}})",
         {"SetValue nx.wireless_timestamp 5", "SetValue sys.schedulereboot.enable 0", "CommitCfm",
          "send_msg_to_netctrl 32 op=3"}},
        {"what is no object is not there", R"({"wireless":[],"maint":"x"})", {}},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(call(server_config_download, row.request), succeeded);
        EXPECT_THAT(effects(), ElementsAreArray(row.lines)) << row.why;
    }
    vap::fail("CommitCfm");
    EXPECT_EQ(call(server_config_download, R"({"maint":{"mainetmode":0},"wireless":
        {"wireless_config":{"radio1":[],"radio2":[]}}})"),
              succeeded)
        << "a failed commit is not told";
    EXPECT_THAT(effects(), Contains("send_msg_to_netctrl 32 op=3")) << "and the rest is applied";
}

TEST_F(Download, IsRefusedUnderLocalManagement) {
    set("nx.manage.en", "1");
    set("nx.manage.mode", "2");
    effects();
    EXPECT_EQ(
        call(server_config_download, R"({"wireless":{"timestamp":5},"maint":{"mainetmode":0}})"),
        failed);
    EXPECT_THAT(effects(), IsEmpty());
    EXPECT_EQ(answer(timestamp_download, R"({"timestamp":5,"time_array":[]})"),
              vap::Json::parse(R"({"mode":"","manage_mode":2,"resp_code":0})"))
        << "the clock is taken all the same";
    EXPECT_EQ(call(auto_maint, R"({"mainetmode":0})"), succeeded) << "and so is the schedule";
}

TEST_F(Download, RestartsAndRestores) {
    EXPECT_EQ(call(reboot_download), succeeded);
    EXPECT_THAT(effects(), ElementsAre("systool_sys_handle 0"));
    EXPECT_EQ(call(nx_restore), succeeded);
    EXPECT_THAT(effects(), ElementsAre("systool_sys_handle 2"));
}

TEST_F(Download, AnswersWithoutMemory) {
    int needed = 0;
    int told = 0;
    const std::string request = R"({"timestamp":5,"time_array":[{"mode":1}]})";
    {
        const test::JsonAllocations all;
        call(timestamp_download, request);
        needed = test::JsonAllocations::made();
    }
    for (int failing = 1; failing <= needed; ++failing) {
        const test::JsonAllocations allocations(failing);
        const std::string response = call(timestamp_download, request);
        EXPECT_EQ(test::JsonAllocations::live(), 0) << failing;
        if (!response.empty()) {  // otherwise no room for request, verdict or text
            const bool whole = response.find("\"manage_mode\"") != std::string::npos;
            EXPECT_THAT(response, HasSubstr(whole ? "\"resp_code\":\t0" : "\"resp_code\":\t-1"));
            told += whole ? 0 : 1;
        }
    }
    EXPECT_GE(told, 2) << "each of the two members was missing once";
}

}  // namespace

#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using test::Lines;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

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
    Lines lines{"SetValue sys.up.timestamp 1699999500",
                "updaet_local_wireless_timestamp ",
                "SetValue sys.region_index 38",
                "SetValue sys.timezone 20",
                "SetValue sys.timesyn 1",
                "CommitCfm"};
    EXPECT_EQ(effects(), lines);
    differing("[]");
    lines.resize(3);
    EXPECT_EQ(effects(), lines) << "the zone is as it was: nothing is committed";
    // The time of the start is kept in 32 bits.
    for (const auto &[timestamp, stored] :
         {std::pair("100", "-400"), {"-2147483648", "2147483148"}}) {
        call(timestamp_download, std::string(R"({"time_array":[],"timestamp":)") + timestamp + "}");
        EXPECT_EQ(get("sys.up.timestamp"), stored);
    }
}

TEST_F(Download, RefusesARequestWithoutClockOrStamps) {
    for (const char *request : {"", R"({"timestamp":5,"time_array":{"mode":1}})",
                                R"({"time_array":[]})", R"({"time_array":[],"timestamp":"5"})"}) {
        EXPECT_EQ(call(timestamp_download, request), "{\n\t\"resp_code\":\t-1\n}") << request;
        EXPECT_THAT(effects(), IsEmpty()) << request;
    }
}

TEST_F(Download, NamesTheCategoriesThatDiffer) {
    const Lines names{"",
                      "net",
                      "wireless",
                      "net,wireless",
                      "devicemain",
                      "net,devicemain",
                      "wireless,devicemain",
                      "all"};
    for (size_t differ = 0; differ < names.size(); ++differ) {
        // older, newer and missing stamps differ alike
        stamp((differ & 1) != 0 ? "11" : "10", (differ & 2) != 0 ? "19" : "20",
              (differ & 4) != 0 ? "" : "30");
        EXPECT_EQ(differing(R"([{"mode":0,"timestamp":10},{"mode":1,"timestamp":20},
            {"mode":2,"timestamp":30}])"),
                  names[differ]);
    }
}

TEST_F(Download, ReadsTheStampsOfTheCloud) {
    std::string many = "[{}";
    for (int i = 0; i < 1'000'000; ++i) {
        many += ",{}";
    }
    struct Row {
        const char *why;
        std::string time_array;
        const char *answer;
    } const rows[] = {
        {"a category that is not named has stamp 0", "[]", "wireless,devicemain"},
        {"the last stamp of a category counts",
         R"([{"mode":1,"timestamp":5},{"mode":1,"timestamp":20},{"mode":2,"timestamp":30}])", ""},
        {"a missing mode is the network", R"([{"timestamp":1}])", "all"},
        {"other modes are not looked at",
         R"([{"mode":3,"timestamp":1},{"mode":-1,"timestamp":1},{"mode":2,"timestamp":30}])",
         "wireless"},
        {"one pass over the elements", many + "]", "wireless,devicemain"},
    };
    stamp("", "20x", "30");
    for (const Row &row : rows) {
        EXPECT_EQ(differing(row.time_array), row.answer) << row.why;
    }
}

TEST_F(Download, AppliesWhatIsThereUntilNoCategoryDiffers) {
    const std::string stamps = R"([{"mode":1,"timestamp":100},{"mode":2,"timestamp":200}])";
    EXPECT_EQ(differing(stamps), "wireless,devicemain");
    effects();
    for (const char *nothing :
         {"{}", R"({"net":{"timestamp":5,"lan":{}}})", R"({"wireless":[],"maint":[]})"}) {
        EXPECT_EQ(verdict(server_config_download, nothing), 0);
        EXPECT_THAT(effects(), IsEmpty()) << nothing;
    }
    EXPECT_EQ(verdict(server_config_download, R"({"maint":{"mainetmode":0},
                  "wireless":{"timestamp":100,"wireless_config":{}}})"),
              0);
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 100",
                                       "SetValue sys.schedulereboot.enable 0", "CommitCfm",
                                       "send_msg_to_netctrl 32 op=3"))
        << "wireless first, whatever the order in the text";
    EXPECT_EQ(differing(stamps), "devicemain");
    vap::fail("CommitCfm");
    EXPECT_EQ(verdict(server_config_download, R"({"maint":{"mainetmode":0,"timestamp":200},
                  "wireless":{"timestamp":100,"wireless_config":{"radio1":[],"radio2":[]}}})"),
              0)
        << "a failed commit is not told";
    EXPECT_THAT(effects(), Contains("send_msg_to_netctrl 32 op=3")) << "and the rest is applied";
    EXPECT_EQ(differing(stamps), "");
}

TEST_F(Download, IsRefusedUnderLocalManagement) {
    manage_locally();
    EXPECT_EQ(verdict(server_config_download, R"({"wireless":{"timestamp":5},"maint":{}})"), -1);
    EXPECT_THAT(effects(), IsEmpty());
    EXPECT_EQ(answer(timestamp_download, R"({"timestamp":5,"time_array":[]})"),
              vap::Json::parse(R"({"mode":"","manage_mode":2,"resp_code":0})"))
        << "the clock is taken all the same";
    EXPECT_EQ(verdict(auto_maint, R"({"mainetmode":0})"), 0) << "and so is the schedule";
}

TEST_F(Download, RestartsAndRestores) {
    EXPECT_EQ(verdict(reboot_download), 0);
    EXPECT_EQ(verdict(nx_restore), 0);
    EXPECT_THAT(effects(), ElementsAre("systool_sys_handle 0", "systool_sys_handle 2"));
}

TEST_F(Download, FailsWithoutMemoryForItsAnswer) {
    expect_members_or_failure(timestamp_download, R"({"timestamp":5,"time_array":[]})",
                              {"mode", "manage_mode"});
}

}  // namespace

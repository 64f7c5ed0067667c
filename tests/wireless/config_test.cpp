#include "json.h"
#include "report/config_report.h"
#include "tests/support/support.h"
#include "wireless/config_wifi.h"
#include "wireless/request_config_upload.h"
#include "wireless/wireless_api.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Config : public test::Device {
  protected:
    Config() { set("nx.manage.mode", "1"); }

    /** The wireless configuration as the cloud is told it. */
    vap::Json reported() {
        const Json object = json_object();
        EXPECT_EQ(wireless_data_get(object.get()), 0);
        return vap::Json::parse(json_print(object).get());
    }

    static int download(const std::string &text) {
        const Json config(cJSON_Parse(text.c_str()));
        return config_wifi_parse(config.get());
    }
};

/** Members of an SSID, as they are set and as they are reported. */
struct Member {
    const char *set;
    const char *reported;
};
constexpr Member ssid_members[] = {
    {"ssididx", "ssididx"},   {"ssid", "ssid"},
    {"ssidenable", "status"}, {"hide", "hide"},
    {"encrypt", "encrypt"},   {"security", "security"},
    {"passwd", "passwd"},     {"update_time", "update_time"},
    {"max_conn", "max_conn"}, {"time_close", "time_close"},
    {"timeval", "timeval"},   {"client_quarantine", "client_quarantine"},
    {"vlan", "vlan"},
};

TEST_F(Config, ReportsWhatTheCommandsSet) {
    const char *const first = R"({"ssididx":2,"ssid":"Gäste \"1\"","ssidenable":1,"hide":1,
        "encrypt":1,"security":2,"passwd":"top\\secret=1","update_time":7200,"max_conn":12,
        "time_close":1,"timeval":"22:00-06:00","client_quarantine":1,"vlan":"20"})";
    const char *const second = R"({"ssididx":3,"ssid":"Büro","ssidenable":1,"hide":0,"encrypt":2,
        "security":1,"passwd":"12345678","update_time":0,"max_conn":0,"time_close":0,"timeval":"",
        "client_quarantine":0,"vlan":"4094"})";
    call(wlan_config_set,
         std::string(R"({"timestamp":77,"radio1":[)") + first + R"(],"radio2":[)" + second + "]}");
    struct Row {
        const char *radio;
        const char *ssid;
    } const rows[] = {{"radio1", first}, {"radio2", second}};
    for (const Row &row : rows) {
        const vap::Json wanted = vap::Json::parse(row.ssid);
        const vap::Json told =
            reported().at("wireless_config").at(row.radio).at(wanted.at("ssididx").get<size_t>());
        for (const Member &member : ssid_members) {
            EXPECT_EQ(told.at(member.reported), wanted.at(member.set)) << member.set;
        }
    }
    EXPECT_EQ(reported().at("timestamp"), 77);
}

TEST_F(Config, ReportsTheRadioRulesThatACommandSet) {
    const vap::Json rules = vap::Json::parse(R"([
        {"channel":11,"power":17,"rssi":-80,"radioenable":1},
        {"channel":0,"power":30,"rssi":-60,"radioenable":0}])");
    call(radio_config_set, vap::Json{{"timestamp", 78}, {"rf_rule", rules}}.dump());
    const vap::Json told = reported().at("radio_config").at("rf_rule");
    for (size_t radio = 0; radio < rules.size(); ++radio) {
        for (const auto &[member, value] : rules[radio].items()) {
            EXPECT_EQ(told.at(radio).at(member), value) << radio << " " << member;
        }
        EXPECT_EQ(told.at(radio).at("other"), 0) << "the country is the cloud's choice";
    }
    EXPECT_EQ(reported().at("timestamp"), 78);
}

TEST_F(Config, ADownloadAppliesItsPartsInOrder) {
    EXPECT_EQ(download(R"({"radio_optimize":{"channel_1":6,"channel_2":-1},
        "radio_config":{"rf_rule":[]},"wireless_config":{"timestamp":9,"radio2":[]},
        "timestamp":5})"),
              0);
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 5", "CommitCfm",
                                       "send_wifi_msg_handle 1 1", "SetValue wl2g.public.channel 6",
                                       "SetValue wl2g.public.current_power 20", "CommitCfm",
                                       "send_wifi_msg_handle 1 0"))
        << "the stamp is the outer one; no optimisation of a download is reported";
    vap::advance(100);
    EXPECT_THAT(uploads("nx_api_radio_optimiza_back"), IsEmpty());
}

TEST_F(Config, ADownloadGoesOnAfterAPartThatFailed) {
    vap::fail("CommitCfm", 1, 2);
    EXPECT_EQ(download(R"({"wireless_config":{"radio1":[],"radio2":[]},
        "radio_config":{"rf_rule":[{}]},"radio_optimize":{"channel_2":-1}})"),
              0);
    EXPECT_THAT(effects({"CommitCfm", "send_wifi_msg_handle"}),
                ElementsAre("CommitCfm", "CommitCfm", "CommitCfm", "send_wifi_msg_handle 1 0"));
}

TEST_F(Config, ADownloadLeavesOutWhatIsNoObject) {
    for (const char *config : {"{}", "[1]", "7", R"({"wireless_config":[],"radio_config":"x",
             "radio_optimize":null})"}) {
        EXPECT_EQ(download(config), 0);
        EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 0")) << config;
    }
}

TEST_F(Config, AsksTheCloudForTheConfiguration) {
    struct Row {
        const char *mode;
        const char *manage;
    } const rows[] = {{"1", "1"}, {"2", "2"}, {"", "0"}, {"x", "0"}};
    for (const Row &row : rows) {
        set("nx.manage.mode", row.mode);
        EXPECT_EQ(request_config_upload(), 0);
        EXPECT_EQ(
            uploads("nx_api_manage_info_upload").back().data,
            std::string("{\n\t\"mode\":\t\"wireless\",\n\t\"manage\":\t") + row.manage + "\n}");
    }
    EXPECT_THAT(output_of([] { request_config_upload(); }),
                ::testing::HasSubstr("] :  request_config_upload succeed! out:{\n"));
    refuse("nx_api_manage_info_upload");
    EXPECT_THAT(output_of([] { EXPECT_EQ(request_config_upload(), -1); }),
                ::testing::HasSubstr("] : request_config_upload err!\n"));
}

TEST_F(Config, SendsNoRequestWithoutMemory) {
    int needed = 0;
    {
        const test::JsonAllocations all;
        request_config_upload();
        needed = test::JsonAllocations::made();
    }
    for (int failing = 1; failing <= needed; ++failing) {
        const test::JsonAllocations allocations(failing);
        EXPECT_EQ(request_config_upload(), -1) << failing;
        EXPECT_EQ(test::JsonAllocations::live(), 0) << failing;
    }
    EXPECT_THAT(uploads("nx_api_manage_info_upload"), SizeIs(1));
}

TEST_F(Config, UploadsTheRadioEnvironment) {
    vap::patch_hardware({{"stations",
                          {{"02:57:00:00:00:01", {{"band", 5}, {"ssid", 0}}},
                           {"02:57:00:00:00:02", {{"band", 24}, {"ssid", 0}}}}}});
    const vap::Json response = answer(radio_optimiza_upload);
    std::vector<std::string> members;
    for (const auto &[member, value] : response.items()) {
        members.push_back(member);
    }
    EXPECT_THAT(members, ElementsAre("rf_rule", "ssid_info", "stanum", "uprate", "downrate",
                                     "load_blance", "neighbor_entry_s", "resp_code"));
    EXPECT_THAT(response.at("rf_rule"), SizeIs(2));
    EXPECT_THAT(response.at("ssid_info"), SizeIs(12));
    EXPECT_EQ(response.at("stanum"), 2);
    EXPECT_EQ(response.at("load_blance"), vap::Json::object());
    EXPECT_FALSE(response.at("neighbor_entry_s").empty());
    EXPECT_EQ(response.at("resp_code"), 0);

    vap::fail("wifi_do_scan");
    const vap::Json unheard = answer(radio_optimiza_upload);
    EXPECT_EQ(unheard.at("neighbor_entry_s"), vap::Json::array());
    EXPECT_EQ(unheard.at("resp_code"), 0) << "nothing was heard, and all else is told";
}

TEST_F(Config, TellsWhenMemoryRunsShort) {
    int needed = 0;
    {
        const test::JsonAllocations all;
        answer(radio_optimiza_upload);
        needed = test::JsonAllocations::made();
    }
    int told = 0;
    for (int failing = 1; failing <= needed; ++failing) {
        std::string response;
        {
            const test::JsonAllocations allocations(failing);
            response = call(radio_optimiza_upload);
            EXPECT_EQ(test::JsonAllocations::live(), 0) << failing;
        }
        if (response.empty()) {
            continue;  // no room for request, verdict or text
        }
        const vap::Json answer = vap::Json::parse(response);
        const bool whole = answer.contains("rf_rule") && answer.contains("ssid_info") &&
                           answer.contains("stanum") && answer.contains("load_blance") &&
                           answer.contains("neighbor_entry_s");
        if (!whole) {
            EXPECT_EQ(answer.at("resp_code"), -1) << failing << ": " << response;
            ++told;
        }
    }
    EXPECT_GE(told, 5) << "each of the five members was missing once";
}

}  // namespace

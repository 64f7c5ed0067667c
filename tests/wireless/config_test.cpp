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

    static int download(const std::string &text) { return parse(config_wifi_parse, text); }
};

TEST_F(Config, ReportsTheSsidsThatACommandSet) {
    const vap::Json ssids = vap::Json::parse(R"({
        "radio1":{"ssididx":2,"ssid":"Gäste \"1\"","ssidenable":1,"hide":1,"encrypt":1,"security":2,
            "passwd":"top\\secret=1","update_time":7200,"max_conn":12,"time_close":1,
            "timeval":"22:00-06:00","client_quarantine":1,"vlan":"20"},
        "radio2":{"ssididx":3,"ssid":"Büro","ssidenable":1,"hide":0,"encrypt":2,"security":1,
            "passwd":"12345678","update_time":0,"max_conn":0,"time_close":0,"timeval":"",
            "client_quarantine":0,"vlan":"4094"}})");
    vap::Json request = {{"timestamp", 77}};
    for (const auto &[radio, ssid] : ssids.items()) {
        request[radio] = vap::Json::array({ssid});
    }
    call(wlan_config_set, request.dump());
    const vap::Json told = reported();
    EXPECT_EQ(told.at("timestamp"), 77);
    for (const auto &[radio, ssid] : ssids.items()) {
        const vap::Json &slot =
            told.at("wireless_config").at(radio).at(ssid.at("ssididx").get<size_t>());
        for (const auto &[member, value] : ssid.items()) {
            EXPECT_EQ(slot.at(member == "ssidenable" ? "status" : member), value) << member;
        }
    }
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
        "radio_config":{"rf_rule":[{}]},"wireless_config":{"timestamp":9,"radio2":[]},
        "timestamp":5})"),
              0);
    test::Lines lines = effects();
    std::erase_if(lines, [](const std::string &line) { return line.find("wl2g") != line.npos; });
    EXPECT_THAT(lines,
                ElementsAre("SetValue nx.wireless_timestamp 5", "CommitCfm",
                            "send_wifi_msg_handle 1 1", "CommitCfm", "send_wifi_msg_handle 1 0",
                            "CommitCfm", "send_wifi_msg_handle 1 0"))
        << "the stamp is the outer one";
    EXPECT_EQ(get("wl2g.public.channel"), "6");
    vap::advance(100);
    EXPECT_THAT(uploads("nx_api_radio_optimiza_back"), IsEmpty()) << "only a command's is reported";
    vap::fail("CommitCfm", 1, 2);
    EXPECT_EQ(download(R"({"wireless_config":{"radio1":[],"radio2":[]},
        "radio_config":{"rf_rule":[{}]},"radio_optimize":{"channel_2":-1}})"),
              0);
    EXPECT_THAT(effects({"CommitCfm", "send_wifi_msg_handle"}),
                ElementsAre("CommitCfm", "CommitCfm", "CommitCfm", "send_wifi_msg_handle 1 0"))
        << "a part that failed stops itself alone";
    EXPECT_EQ(download(R"({"wireless_config":[],"radio_config":"x","radio_optimize":[]})"), 0);
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 0"));
}

TEST_F(Config, AsksTheCloudForTheConfiguration) {
    expect_whole_or_nothing(request_config_upload, "nx_api_manage_info_upload");
    set("nx.manage.mode", "00000029");  // cut behind the 2
    EXPECT_EQ(request_config_upload(), 0);
    const auto sent = uploads("nx_api_manage_info_upload");
    EXPECT_EQ(sent[0].data, "{\n\t\"mode\":\t\"wireless\",\n\t\"manage\":\t1\n}");
    EXPECT_EQ(sent[1].data, "{\n\t\"mode\":\t\"wireless\",\n\t\"manage\":\t2\n}");
    refuse("nx_api_manage_info_upload");
    EXPECT_EQ(request_config_upload(), -1);
}

TEST_F(Config, UploadsTheRadioEnvironment) {
    vap::patch_hardware({{"stations",
                          {{"02:57:00:00:00:01", {{"band", 5}, {"ssid", 0}}},
                           {"02:57:00:00:00:02", {{"band", 24}, {"ssid", 0}}}}}});
    const vap::Json response = answer(radio_optimiza_upload);
    const test::Lines members{"rf_rule",  "ssid_info",   "stanum",           "uprate",
                              "downrate", "load_blance", "neighbor_entry_s", "resp_code"};
    auto member = members.begin();
    ASSERT_EQ(response.size(), members.size());
    for (const auto &item : response.items()) {
        EXPECT_EQ(item.key(), *member++);
    }
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
    expect_members_or_failure(
        radio_optimiza_upload, "",
        {"rf_rule", "ssid_info", "stanum", "load_blance", "neighbor_entry_s"});
}

}  // namespace

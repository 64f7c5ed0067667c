#include <regex>

#include "platform/apmib.h"
#include "tests/support/support.h"
#include "wireless/config_wifi.h"
#include "wireless/wireless_api.h"

namespace {

class Vlan : public test::Device {
  protected:
    Vlan() { set("nx.manage.mode", "1"); }

    /** The journal in short: what concerns VLANs ("vlan=1" for "wl.0.vlan.enable",
     *  "switch=1" for "qvlan_mode_enable", "2g0=20" for an SSID, "2g0_bk=20" for its
     *  backup), commits, restarts of a radio ("wifi0") and of the device, and the request
     *  for the configuration ("ask"). */
    std::string told() {
        static const std::pair<std::regex, std::string> forms[] = {
            {std::regex("SetValue wl\\.0\\.vlan\\.enable "), "vlan="},
            {std::regex("SetValue qvlan_mode_enable "), "switch="},
            {std::regex("SetValue wl(.g)\\.ssid(\\d+)\\.vlanid(_bk)? "), "$1$2$3="},
            {std::regex("CommitCfm"), "commit"},
            {std::regex("send_wifi_msg_handle 1 "), "wifi"},
            {std::regex("systool_sys_handle 0"), "reboot"},
            {std::regex("nx_api_manage_info_upload [^]*"), "ask"},
        };
        std::string text;
        for (std::string line : effects()) {
            for (const auto &[form, word] : forms) {
                line = std::regex_replace(line, form, word);
            }
            if (!line.starts_with("SetValue ")) {
                text += (text.empty() ? "" : " ") + line;
            }
        }
        return text;
    }
};

TEST_F(Vlan, CommandSetsResetsAndRestarts) {
    struct Row {
        const char *why;
        const char *enable;   // "wl.0.vlan.enable"
        const char *current;  // "vlanid"
        const char *vlan;     // of the request, as JSON
        const char *told;
    } const rows[] = {
        {"a new VLAN", "0", "1000", R"("20")", "2g1=20 vlan=1 switch=1 commit wifi0 ask reboot"},
        {"the same VLAN again switches VLANs on, but restarts nothing", "0", "20", R"("20")",
         "vlan=1 switch=1 commit wifi0"},
        {"VLANs are on already", "1", "1000", R"("20")", "2g1=20 commit wifi0 ask reboot"},
        {"the last VLAN goes", "1", "20", R"("0")",
         "2g1=1000 vlan=0 switch=0 commit wifi0 ask reboot"},
        {"none before, none now", "1", "1000", R"("0")", "vlan=0 switch=0 commit wifi0"},
        {"a number is no text: 0", "0", "20", "20", "2g1=1000 commit wifi0 ask reboot"},
        {"a negative VLAN changes nothing and is none", "1", "20", R"("-5")",
         "vlan=0 switch=0 commit wifi0"},
        {"the text is compared and stored, the number decides", "0", "20", R"(" 020x")",
         "2g1= 020x vlan=1 switch=1 commit wifi0 ask reboot"},
        {"compared as text: neither \"0\" nor \"1\"", "2", "1000", R"("20")",
         "2g1=20 commit wifi0 ask reboot"},
        {"compared as text: neither \"0\" nor \"1\"", "01", "1000", R"("0")", "commit wifi0"},
    };
    for (const Row &row : rows) {
        set("wl.0.vlan.enable", row.enable);
        set("wl2g.ssid1.vlanid", row.current);
        call(wlan_config_set,
             R"({"radio1":[{"ssididx":1,"ssidenable":1,"vlan":)" + std::string(row.vlan) + "}]}");
        EXPECT_EQ(told(), row.told) << row.why;
    }
}

TEST_F(Vlan, CommandCountsTheVlansOfBothRadios) {
    set("wl2g.ssid0.vlanid", "20");
    call(wlan_config_set, R"({"radio1":[{"ssidenable":1,"vlan":"20"}],
        "radio2":[{"ssidenable":1,"vlan":"0"}]})");
    EXPECT_EQ(told(), "vlan=1 switch=1 commit wifi0 vlan=1 switch=1 commit wifi1")
        << "the mode is not read again, so it is set again";
    call(wlan_config_set, R"({"radio1":[{"ssidenable":1,"vlan":"0"}],
        "radio2":[{"ssidenable":1,"vlan":"30"}]})");
    EXPECT_EQ(told(), "2g0=1000 vlan=0 switch=0 commit wifi0 5g0=30 commit wifi1 ask reboot");
}

TEST_F(Vlan, CommandAnnouncesTheRestart) {
    refuse("nx_api_manage_info_upload");
    vap::fail("CommitCfm");
    const std::string stars(44, '*');
    EXPECT_EQ(
        output_of([&] { call(wlan_config_set, R"({"radio1":[{"ssidenable":1,"vlan":"20"}]})"); },
                  false),
        stars + "\n   vlanid changed.then system going reboot  \n" + stars + "\n")
        << "printed whatever the debug flag is";
    const auto journal = vap::journal();
    EXPECT_EQ(journal.back().at("op"), "systool_sys_handle")
        << "although nothing was committed and the cloud cannot be asked";
    EXPECT_EQ(journal.back().at("time").get<double>() - journal.front().at("time").get<double>(),
              1);
}

TEST_F(Vlan, DownloadKeepsABackupAndIgnoresZero) {
    struct Row {
        const char *current, *vlan, *told;
    } const rows[] = {
        {"1000", R"("20")", "5g2=20 5g2_bk=20 commit wifi1"},
        {"20", R"("20")", "commit wifi1"},
        {"20", R"("0")", "commit wifi1"},
        {"20", "7", "commit wifi1"},
        {"20", R"("-1")", "commit wifi1"},
        {"20", R"("020")", "5g2=020 5g2_bk=020 commit wifi1"},
    };
    set("wl.0.vlan.enable", "1");  // and neither IPTV nor the switch's mode: nothing to decide
    for (const Row &row : rows) {
        set("wl5g.ssid2.vlanid", row.current);
        parse(config_wifi_wireless_parse,
              R"({"radio2":[{"ssididx":2,"ssidenable":1,"vlan":)" + std::string(row.vlan) + "}]}");
        EXPECT_EQ(told(), row.told) << row.current << " to " << row.vlan;
    }
}

class VlanDecision : public Vlan {
  protected:
    /** What a download with this VLAN (null: none) of an SSID that has VLAN 20 decides
     *  behind its own commit, `state` being "wl.0.vlan.enable", "iptv_enable" and
     *  "qvlan_mode_enable"; `failing` is the commit that fails. */
    std::string decided(const test::Lines &state, const char *vlan, int failing = 0) {
        CommitCfm();  // nothing is left pending from before
        set("wl.0.vlan.enable", state[0]);
        set("iptv_enable", state[1]);
        set("qvlan_mode_enable", state[2]);
        set("wl2g.ssid0.vlanid", "20");
        effects();
        vap::fail("CommitCfm", failing, failing == 0 ? 0 : 1);
        EXPECT_EQ(parse(config_wifi_wireless_parse,
                        R"({"radio1":[{"ssidenable":1,"vlan":)" + std::string(vlan) + "}]}"),
                  0);
        const std::string text = told();
        const size_t wifi = text.find("wifi0");
        return text.substr(std::min(text.size(), wifi + 6));
    }
};

const std::string end_switch =
    "switch=0 5g0=1000 5g1=1000 5g2=1000 5g3=1000 2g0=1000 2g1=1000 2g2=1000 2g3=1000 2g4=1000 "
    "2g5=1000 2g6=1000 2g7=1000 commit";
const std::string start = "vlan=1 switch=1 commit vlan=1 reboot";
const std::string start_switch = "switch=1 commit reboot";

TEST_F(VlanDecision, FollowsTheStateOfTheDevice) {
    struct Row {
        const char *why;
        test::Lines state;
        std::string unused, same, changed;
    } const rows[] = {
        {"VLANs off", {"0", "0", "0"}, "", start, start},
        {"VLANs off, whatever the others say", {"0", "1", "1"}, "", start, start},
        {"no number is 0", {"on", "0", "1"}, "", start, start},
        {"IPTV, switch on", {"1", "1", "1"}, end_switch + " reboot", "", "commit reboot"},
        {"any other number is on", {"-2", "1", "1"}, end_switch + " reboot", "", "commit reboot"},
        {"IPTV, switch off", {"1", "1", "0"}, "", start_switch, start_switch},
        {"the switch's mode is a text", {"1", "1", "01"}, "", start_switch, start_switch},
        {"switch on", {"1", "0", "1"}, "vlan=0 commit reboot", "", "reboot"},
        {"IPTV is a text", {"1", "2", "1"}, "vlan=0 commit reboot", "", "reboot"},
        {"neither", {"1", "0", "0"}, "", "", ""},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(decided(row.state, "null"), row.unused) << row.why;
        EXPECT_EQ(decided(row.state, R"("20")"), row.same) << row.why;
        EXPECT_EQ(decided(row.state, R"("30")"), row.changed) << row.why;
    }
}

TEST_F(VlanDecision, RestartsOnlyOnWhatWasSaved) {
    struct Row {
        test::Lines state;
        const char *vlan;
        std::string told;  // with the decision's own commit failing
    } const rows[] = {
        {{"0", "0", "0"}, R"("20")", "vlan=1 switch=1 commit"},
        {{"1", "1", "1"}, "null", end_switch},
        {{"1", "1", "1"}, R"("30")", "commit"},
        {{"1", "1", "0"}, R"("30")", "switch=1 commit"},
        {{"1", "0", "1"}, "null", "vlan=0 commit"},
        {{"1", "0", "1"}, R"("30")", "reboot"},  // a change without IPTV needs no commit
    };
    for (const Row &row : rows) {
        EXPECT_EQ(decided(row.state, row.vlan, 2), row.told) << &row - rows;
    }
}

TEST_F(VlanDecision, ComesAfterBothRadiosAndOnlyWhenTheyWereSaved) {
    const char *const config = R"({"radio1":[{"ssidenable":1,"vlan":"30"}],"radio2":[]})";
    decided({"0", "0", "0"}, "null");
    EXPECT_EQ(parse(config_wifi_wireless_parse, config), 0);
    EXPECT_EQ(told(), "2g0=30 2g0_bk=30 commit wifi0 commit wifi1 " + start);
    decided({"0", "0", "0"}, "null");
    vap::fail("CommitCfm", 2);
    EXPECT_EQ(parse(config_wifi_wireless_parse, config), -1);
    EXPECT_EQ(told(), "2g0=30 2g0_bk=30 commit wifi0 commit");
}

}  // namespace

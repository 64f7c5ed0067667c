#include "platform/apmib.h"
#include "tests/support/support.h"
#include "wireless/config_wifi.h"
#include "wireless/wireless_api.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

using Lines = std::vector<std::string>;

class Vlan : public test::Device {
  protected:
    Vlan() { set("nx.manage.mode", "1"); }

    int download(const std::string &config) {
        cJSON *parsed = cJSON_Parse(config.c_str());
        const int result = config_wifi_wireless_parse(parsed);
        cJSON_Delete(parsed);
        return result;
    }

    /** The journal without what does not concern VLANs. */
    Lines vlan_effects() {
        Lines lines = effects();
        std::erase_if(lines, [](const std::string &line) {
            return line.starts_with("SetValue") && line.find("vlan") == std::string::npos;
        });
        return lines;
    }
};

const char *const request_text = "{\n\t\"mode\":\t\"wireless\",\n\t\"manage\":\t1\n}";

TEST_F(Vlan, CommandSetsResetsAndRestarts) {
    const Lines both_on{"SetValue wl.0.vlan.enable 1", "SetValue qvlan_mode_enable 1"};
    const Lines both_off{"SetValue wl.0.vlan.enable 0", "SetValue qvlan_mode_enable 0"};
    struct Row {
        const char *why;
        const char *enable;   // "wl.0.vlan.enable"
        const char *current;  // "vlanid"
        const char *vlan;     // of the request, as JSON
        const char *stored;   // new "vlanid"; null: not written
        Lines mode;
    } const rows[] = {
        {"a new VLAN", "0", "1000", R"("20")", "20", both_on},
        {"the same VLAN again switches VLANs on, but restarts nothing", "0", "20", R"("20")",
         nullptr, both_on},
        {"VLANs are on already", "1", "1000", R"("20")", "20", {}},
        {"the last VLAN goes", "1", "20", R"("0")", "1000", both_off},
        {"none before, none now", "1", "1000", R"("0")", nullptr, both_off},
        {"none, and VLANs are off", "0", "1000", R"("0")", nullptr, {}},
        {"a number is no text: 0", "0", "20", "20", "1000", {}},
        {"no number at all is 0", "0", "20", R"("guest")", "1000", {}},
        {"a negative VLAN changes nothing and is none", "1", "20", R"("-5")", nullptr, both_off},
        {"the text is compared and stored, the number decides", "0", "20", R"(" 020x")", " 020x",
         both_on},
        {"beyond 32 bits", "0", "1000", R"("99999999999")", "99999999999", both_on},
        {"compared as text: neither \"0\" nor \"1\"", "2", "1000", R"("20")", "20", {}},
        {"compared as text: neither \"0\" nor \"1\"", "01", "1000", R"("0")", nullptr, {}},
        {"compared as text: neither \"0\" nor \"1\"", "", "1000", R"("20")", "20", {}},
    };
    for (const Row &row : rows) {
        set("wl.0.vlan.enable", row.enable);
        set("wl2g.ssid1.vlanid", row.current);
        effects();
        call(wlan_config_set,
             R"({"radio1":[{"ssididx":1,"ssidenable":1,"vlan":)" + std::string(row.vlan) + "}]}");
        Lines expected;
        if (row.stored != nullptr) {
            expected.push_back(std::string("SetValue wl2g.ssid1.vlanid ") + row.stored);
        }
        expected.insert(expected.end(), row.mode.begin(), row.mode.end());
        expected.insert(expected.end(), {"CommitCfm", "send_wifi_msg_handle 1 0"});
        if (row.stored != nullptr) {
            expected.insert(
                expected.end(),
                {std::string("nx_api_manage_info_upload ") + request_text, "systool_sys_handle 0"});
        }
        EXPECT_THAT(vlan_effects(), ElementsAreArray(expected)) << row.why;
    }
}

TEST_F(Vlan, CommandCountsTheVlansOfBothRadios) {
    set("wl2g.ssid0.vlanid", "20");
    effects();
    call(wlan_config_set, R"({"radio1":[{"ssidenable":1,"vlan":"20"}],
        "radio2":[{"ssidenable":1,"vlan":"0"}]})");
    EXPECT_THAT(vlan_effects(),
                ElementsAre("SetValue wl.0.vlan.enable 1", "SetValue qvlan_mode_enable 1",
                            "CommitCfm", "send_wifi_msg_handle 1 0",
                            // the mode is not read again, so it is set again
                            "SetValue wl.0.vlan.enable 1", "SetValue qvlan_mode_enable 1",
                            "CommitCfm", "send_wifi_msg_handle 1 1"));
    call(wlan_config_set, R"({"radio1":[{"ssidenable":1,"vlan":"0"}],
        "radio2":[{"ssidenable":1,"vlan":"30"}]})");
    EXPECT_THAT(
        vlan_effects(),
        ElementsAre("SetValue wl2g.ssid0.vlanid 1000", "SetValue wl.0.vlan.enable 0",
                    "SetValue qvlan_mode_enable 0", "CommitCfm", "send_wifi_msg_handle 1 0",
                    "SetValue wl5g.ssid0.vlanid 30", "CommitCfm", "send_wifi_msg_handle 1 1",
                    std::string("nx_api_manage_info_upload ") + request_text,
                    "systool_sys_handle 0"));
}

TEST_F(Vlan, CommandAnnouncesTheRestart) {
    const char *const config = R"({"radio1":[{"ssidenable":1,"vlan":"20"}]})";
    refuse("nx_api_manage_info_upload");
    vap::fail("CommitCfm");
    const std::string stars(44, '*');
    EXPECT_EQ(output_of([&] { call(wlan_config_set, config); }, false),
              stars + "\n   vlanid changed.then system going reboot  \n" + stars + "\n")
        << "printed whatever the debug flag is";
    double asked = 0;
    double restarted = 0;
    for (const vap::Json &line : vap::journal()) {
        (line.at("op") == "nx_api_manage_info_upload" ? asked : restarted) = line.at("time");
    }
    EXPECT_EQ(vap::journal().back().at("op"), "systool_sys_handle")
        << "although nothing was committed and the cloud cannot be asked";
    EXPECT_DOUBLE_EQ(restarted - asked, 1.0);
}

TEST_F(Vlan, DownloadKeepsABackupAndIgnoresZero) {
    struct Row {
        const char *current;
        const char *vlan;
        const char *stored;
    } const rows[] = {
        {"1000", R"("20")", "20"}, {"20", R"("20")", nullptr}, {"20", R"("0")", nullptr},
        {"20", "7", nullptr},      {"20", R"("-1")", nullptr}, {"20", R"("guest")", nullptr},
        {"", R"("1")", "1"},       {"20", R"("020")", "020"},
    };
    for (const Row &row : rows) {
        set("wl5g.ssid2.vlanid", row.current);
        effects();
        download(R"({"radio2":[{"ssididx":2,"ssidenable":1,"vlan":)" + std::string(row.vlan) +
                 "}]}");
        Lines expected;
        if (row.stored != nullptr) {
            expected = {std::string("SetValue wl5g.ssid2.vlanid ") + row.stored,
                        std::string("SetValue wl5g.ssid2.vlanid_bk ") + row.stored};
        }
        expected.insert(expected.end(), {"CommitCfm", "send_wifi_msg_handle 1 1"});
        Lines lines = vlan_effects();
        lines.resize(std::min(lines.size(), expected.size()));
        EXPECT_THAT(lines, ElementsAreArray(expected)) << row.current << " to " << row.vlan;
    }
}

/** Every SSID of the device back on the default VLAN, 5 GHz first. */
Lines freed_ssids() {
    Lines lines;
    for (const auto &[stem, slots] : {std::pair{"wl5g.ssid", 4}, std::pair{"wl2g.ssid", 8}}) {
        for (int slot = 0; slot < slots; ++slot) {
            lines.push_back("SetValue " + (stem + std::to_string(slot)) + ".vlanid 1000");
        }
    }
    return lines;
}

Lines joined(Lines first, const Lines &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

struct State {
    const char *vlan;
    const char *iptv;
    const char *qvlan;
};

class VlanDecision : public Vlan {
  protected:
    /** What a download with these SSIDs decides, in this state of the device;
     *  `failing` is the commit that fails. */
    Lines decided(const State &state, const char *ssids, int failing = 0) {
        CommitCfm();  // nothing is left pending from before
        set("wl.0.vlan.enable", state.vlan);
        set("iptv_enable", state.iptv);
        set("qvlan_mode_enable", state.qvlan);
        set("wl2g.ssid0.vlanid", "20");
        effects();
        if (failing != 0) {
            vap::fail("CommitCfm", failing);
        }
        result_ = download("{\"radio1\":" + std::string(ssids) + "}");
        Lines lines = vlan_effects();
        const auto wifi = std::ranges::find(lines, "send_wifi_msg_handle 1 0");
        if (wifi != lines.end()) {
            lines.erase(lines.begin(), wifi + 1);
        }
        return lines;
    }
    int result_ = 0;
};

constexpr const char *no_vlan = R"([{"ssidenable":1}])";
constexpr const char *same_vlan = R"([{"ssidenable":1,"vlan":"20"}])";
constexpr const char *other_vlan = R"([{"ssidenable":1,"vlan":"30"}])";

const Lines starts{"SetValue wl.0.vlan.enable 1", "SetValue qvlan_mode_enable 1", "CommitCfm",
                   "SetValue wl.0.vlan.enable 1", "systool_sys_handle 0"};
const Lines saves{"CommitCfm", "systool_sys_handle 0"};
const Lines restarts{"systool_sys_handle 0"};
const Lines starts_switch{"SetValue qvlan_mode_enable 1", "CommitCfm", "systool_sys_handle 0"};
const Lines ends{"SetValue wl.0.vlan.enable 0", "CommitCfm", "systool_sys_handle 0"};

TEST_F(VlanDecision, FollowsTheStateOfTheDevice) {
    const Lines ends_switch =
        joined(joined({"SetValue qvlan_mode_enable 0"}, freed_ssids()), saves);
    struct Row {
        const char *why;
        State state;
        Lines unused;
        Lines same;
        Lines changed;
    } const rows[] = {
        {"VLANs off", {"0", "0", "0"}, {}, starts, starts},
        {"VLANs off, whatever the others say", {"0", "1", "0"}, {}, starts, starts},
        {"VLANs off, whatever the others say", {"0", "0", "1"}, {}, starts, starts},
        {"VLANs off, whatever the others say", {"0", "1", "1"}, {}, starts, starts},
        {"no number is 0, and so is a missing key", {"", "1", "1"}, {}, starts, starts},
        {"no number is 0", {"on", "0", "1"}, {}, starts, starts},
        {"IPTV, switch on", {"1", "1", "1"}, ends_switch, {}, saves},
        {"any other number is on", {"-2", "1", "1"}, ends_switch, {}, saves},
        {"IPTV, switch off", {"1", "1", "0"}, {}, starts_switch, starts_switch},
        {"the switch's mode is compared as text",
         {"1", "1", "01"},
         {},
         starts_switch,
         starts_switch},
        {"switch on", {"1", "0", "1"}, ends, {}, restarts},
        {"IPTV is compared as text", {"1", "2", "1"}, ends, {}, restarts},
        {"neither", {"1", "0", "0"}, {}, {}, {}},
        {"neither, with keys missing", {"1", "", ""}, {}, {}, {}},
    };
    for (const Row &row : rows) {
        EXPECT_THAT(decided(row.state, no_vlan), ElementsAreArray(row.unused)) << row.why;
        EXPECT_THAT(decided(row.state, same_vlan), ElementsAreArray(row.same)) << row.why;
        EXPECT_THAT(decided(row.state, other_vlan), ElementsAreArray(row.changed)) << row.why;
        EXPECT_EQ(result_, 0) << row.why;
    }
}

TEST_F(VlanDecision, RestartsOnlyOnWhatWasSaved) {
    struct Row {
        const char *why;
        State state;
        const char *ssids;
        Lines lines;  // with the decision's own commit failing
    } const rows[] = {
        {"start", {"0", "0", "0"}, same_vlan, {starts[0], starts[1], "CommitCfm"}},
        {"end of the switch's VLANs",
         {"1", "1", "1"},
         no_vlan,
         joined(joined({"SetValue qvlan_mode_enable 0"}, freed_ssids()), {"CommitCfm"})},
        {"changed, switch on", {"1", "1", "1"}, other_vlan, {"CommitCfm"}},
        {"start of the switch's VLANs",
         {"1", "1", "0"},
         other_vlan,
         {starts_switch[0], "CommitCfm"}},
        {"end", {"1", "0", "1"}, no_vlan, {ends[0], "CommitCfm"}},
        {"a change without IPTV needs no commit", {"1", "0", "1"}, other_vlan, restarts},
    };
    for (const Row &row : rows) {
        EXPECT_THAT(decided(row.state, row.ssids, 2), ElementsAreArray(row.lines)) << row.why;
        EXPECT_EQ(result_, 0) << "a commit of the decision does not fail the download";
    }
}

TEST_F(VlanDecision, ComesAfterBothRadiosAndOnlyWhenTheyWereSaved) {
    set("wl.0.vlan.enable", "0");
    effects();
    download(R"({"radio1":[{"ssidenable":1,"vlan":"20"}],"radio2":[]})");
    EXPECT_THAT(vlan_effects(), ElementsAreArray(joined({"SetValue wl2g.ssid0.vlanid 20",
                                                         "SetValue wl2g.ssid0.vlanid_bk 20",
                                                         "CommitCfm", "send_wifi_msg_handle 1 0",
                                                         "CommitCfm", "send_wifi_msg_handle 1 1"},
                                                        starts)));
    vap::fail("CommitCfm", 2);
    EXPECT_EQ(download(R"({"radio1":[{"ssidenable":1,"vlan":"40"}],"radio2":[]})"), -1);
    EXPECT_EQ(vlan_effects().back(), "CommitCfm");
    EXPECT_THAT(decided({"1", "0", "1"}, "null"), ElementsAreArray(ends))
        << "without any SSID no VLAN is in use either";
}

TEST_F(VlanDecision, TracesTheReasonOfARestart) {
    EXPECT_THAT(output_of([&] {
                    decided({"1", "0", "1"}, no_vlan);
                }),
                ::testing::HasSubstr("] : vlanEn is change, system start reboot...\n"));
    EXPECT_THAT(output_of([&] {
                    decided({"1", "0", "1"}, other_vlan);
                }),
                ::testing::HasSubstr("] : vlanEn mib is change, system start reboot...\n"));
}

}  // namespace

#include <regex>

#include "tests/support/support.h"
#include "wireless/config_wifi.h"
#include "wireless/wireless_api.h"

namespace {

using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

enum class Path { command, download };
constexpr Path paths[] = {Path::command, Path::download};

std::string name_of(Path path) {
    return path == Path::command ? "command" : "download";
}

class Ssid : public test::Device {
  protected:
    /** Hands a configuration to one path; "resp_code", or the parser's result. */
    int apply(Path path, const std::string &config) {
        return path == Path::command ? verdict(wlan_config_set, config)
                                     : parse(config_wifi_wireless_parse, config);
    }

    /** What the paths do to the SSIDs: without the stamp of the command. */
    Lines applied(Path path, const std::string &config) {
        apply(path, config);
        Lines lines = effects();
        std::erase(lines, "SetValue nx.wireless_timestamp 0");
        return lines;
    }
};

/** The lines of one path: "c:" in front of what only the command does, "d:" of
 *  what only the download does, "! " of a line that is no setting of the SSID. */
Lines lines_of(Path path, const Lines &all, const std::string &prefix = "wl2g.ssid0.") {
    Lines lines;
    for (std::string line : all) {
        if (line.starts_with("c:") || line.starts_with("d:")) {
            if ((line[0] == 'c') != (path == Path::command)) {
                continue;
            }
            line = line.substr(2);
        }
        lines.push_back(line.starts_with("! ") ? line.substr(2) : "SetValue " + prefix + line);
    }
    return lines;
}

TEST_F(Ssid, SetsKeyByKey) {
    struct Row {
        const char *why;
        const char *ssid;
        Lines keys;
    } const rows[] = {
        {"every member",
         R"({"name":"n","ssididx":0,"ssid":"Café","ssidenable":1,"hide":1,"encrypt":2,"security":2,
             "passwd":"12345678","update_time":3600,"vlan":"0","max_conn":32,"time_close":1,
             "timeval":"22:00-06:00","client_quarantine":1})",
         {"enable 1", "ssid Café", "d:type 1", "hide 1", "security wpapsk", "wpapsk_type psk2",
          "wpapsk_crypto tkip+aes", "wpapsk_psk 12345678", "key_uptime 3600", "bss_maxassoc 32",
          "nx.time_close 1", "nx.timeval 22:00-06:00", "c:sta_isolate 1", "c:type 1"}},
        {"an SSID that is off keeps all else",
         R"({"ssidenable":0,"ssid":"x","encrypt":2,"security":0,"passwd":"y","vlan":"20",
             "time_close":1,"timeval":"z","client_quarantine":1})",
         {"enable 0", "nx.time_close 0"}},
        {"a member of another type counts as missing; a key is found in any case",
         R"({"SSIDEnable":1,"ssid":5,"hide":"1","encrypt":"2","security":"0","passwd":7,"vlan":20,
             "max_conn":"3","time_close":1,"timeval":1,"client_quarantine":[1]})",
         {"enable 1", "ssid ", "d:type 1", "hide 0", "security none", "bss_maxassoc 0",
          "nx.time_close 1", "nx.timeval ", "c:sta_isolate 0", "c:type 1"}},
        {"numbers that mean neither on nor off",
         R"({"ssidenable":-3,"hide":7,"encrypt":5,"max_conn":-1,"time_close":2,
             "client_quarantine":2})",
         {"enable -3", "ssid ", "d:type 1", "hide 1", "bss_maxassoc -1", "c:type 1"}},
        {"no object at all", "7", {"enable 0", "nx.time_close 0"}},
        {"an array of objects is no object",
         R"([{"ssidenable":1}])",
         {"enable 0", "nx.time_close 0"}},
    };
    for (const Row &row : rows) {
        for (const Path path : paths) {
            Lines expected = row.keys;
            expected.insert(expected.end(), {"! CommitCfm", "! send_wifi_msg_handle 1 0"});
            EXPECT_EQ(applied(path, "{\"radio1\":[" + std::string(row.ssid) + "]}"),
                      lines_of(path, expected))
                << name_of(path) << ": " << row.why;
        }
    }
}

TEST_F(Ssid, SetsSecurityByCode) {
    const Lines keys{"wpapsk_crypto aes", "wpapsk_psk p", "key_uptime 0"};
    struct Row {
        int encrypt;
        const char *security, *type;
    } const rows[] = {
        {0, "security none", nullptr},
        {1, "security wpapsk", "wpapsk_type psk"},
        {3, "security wpapsk", "wpapsk_type psk2"},
        {4, "security wpapsk", "wpapsk_type psk2"},
        {5, nullptr, nullptr},   // what the report says of a mode that it does not know
        {-1, nullptr, nullptr},  // not the first mode counted backwards
    };
    for (const Row &row : rows) {
        Lines expected{"enable 1", "ssid ", "type 1", "hide 0"};
        if (row.security != nullptr) {
            expected.emplace_back(row.security);
        }
        if (row.type != nullptr) {
            expected.emplace_back(row.type);
            expected.insert(expected.end(), keys.begin(), keys.end());
        }
        expected.insert(expected.end(), {"bss_maxassoc 0", "nx.time_close 0", "! CommitCfm",
                                         "! send_wifi_msg_handle 1 1"});
        EXPECT_EQ(applied(Path::download, R"({"radio2":[{"ssididx":3,"ssidenable":1,"security":0,
                      "passwd":"p","encrypt":)" +
                                              std::to_string(row.encrypt) + "}]}"),
                  lines_of(Path::download, expected, "wl5g.ssid3."))
            << row.encrypt;
    }
}

TEST_F(Ssid, CarriesTheCipherFromSsidToSsidAndRadioToRadio) {
    for (const Path path : paths) {
        Lines ciphers = applied(path, R"({
            "radio1":[
                {"ssidenable":1,"encrypt":1},
                {"ssidenable":1,"encrypt":1,"security":1},
                {"ssidenable":0,"encrypt":1,"security":0},
                {"ssidenable":1,"encrypt":0,"security":2},
                {"ssidenable":1,"encrypt":1,"security":7}],
            "radio2":[
                {"ssidenable":1,"encrypt":1,"security":-1},
                {"ssidenable":1,"encrypt":1,"security":0},
                {"ssidenable":1,"encrypt":1,"security":"1"}]})");
        std::erase_if(ciphers, [](const std::string &line) {
            return line.find("wpapsk_crypto") == std::string::npos;
        });
        EXPECT_THAT(ciphers,
                    ElementsAre("SetValue wl2g.ssid0.wpapsk_crypto ",  // none named yet
                                "SetValue wl2g.ssid0.wpapsk_crypto tkip",
                                // the SSID that is off names none, the open one does
                                "SetValue wl2g.ssid0.wpapsk_crypto tkip+aes",
                                "SetValue wl5g.ssid0.wpapsk_crypto tkip+aes",
                                "SetValue wl5g.ssid0.wpapsk_crypto aes",
                                "SetValue wl5g.ssid0.wpapsk_crypto aes"))
            << name_of(path);
    }
}

TEST_F(Ssid, TakesEachRadioForItself) {
    struct Row {
        const char *why;
        const char *config;
        Lines lines;
    } const rows[] = {
        {"both, 2.4 GHz first whatever the order in the text",
         R"({"radio2":[{}],"radio1":[{}]})",
         {"SetValue wl2g.ssid0.enable 0", "SetValue wl2g.ssid0.nx.time_close 0", "CommitCfm",
          "send_wifi_msg_handle 1 0", "SetValue wl5g.ssid0.enable 0",
          "SetValue wl5g.ssid0.nx.time_close 0", "CommitCfm", "send_wifi_msg_handle 1 1"}},
        {"one",
         R"({"radio2":[{"ssididx":3}]})",
         {"SetValue wl5g.ssid3.enable 0", "SetValue wl5g.ssid3.nx.time_close 0", "CommitCfm",
          "send_wifi_msg_handle 1 1"}},
        {"an empty array is a radio without changes",
         R"({"radio1":[]})",
         {"CommitCfm", "send_wifi_msg_handle 1 0"}},
        {"a third radio is never set", R"({"radio3":[{"ssidenable":1}]})", {}},
        {"no array, no radio", R"({"radio1":{"ssidenable":1},"radio2":"[]"})", {}},
        {"slots that no radio has",
         R"({"radio1":[{"ssididx":-2147483648},{"ssididx":2147483647}]})",
         {"SetValue wl2g.ssid-2147483648.enable 0", "SetValue wl2g.ssid-2147483648.nx.time_close 0",
          "SetValue wl2g.ssid2147483647.enable 0", "SetValue wl2g.ssid2147483647.nx.time_close 0",
          "CommitCfm", "send_wifi_msg_handle 1 0"}},
    };
    for (const Row &row : rows) {
        for (const Path path : paths) {
            EXPECT_EQ(applied(path, row.config), row.lines) << name_of(path) << ": " << row.why;
        }
    }
}

TEST_F(Ssid, GoesOnOrStopsWhenACommitFails) {
    const std::string config = R"({"radio1":[],"radio2":[]})";
    struct Row {
        int failing;  // which commit
        Lines command, download;
    } const rows[] = {
        {1, {"CommitCfm", "CommitCfm", "send_wifi_msg_handle 1 1"}, {"CommitCfm"}},
        {2,
         {"CommitCfm", "send_wifi_msg_handle 1 0", "CommitCfm"},
         {"CommitCfm", "send_wifi_msg_handle 1 0", "CommitCfm"}},
    };
    for (const Row &row : rows) {
        vap::fail("CommitCfm", row.failing);
        EXPECT_EQ(apply(Path::command, config), 0) << "a failed commit is not told";
        EXPECT_EQ(effects({"CommitCfm", "send_wifi_msg_handle"}), row.command);
        vap::fail("CommitCfm", row.failing);
        EXPECT_EQ(apply(Path::download, config), -1);
        EXPECT_EQ(effects(), row.download);
    }
}

TEST_F(Ssid, CommandStampsFirstAndIsRefusedUnderLocalManagement) {
    EXPECT_EQ(apply(Path::command, R"({"timestamp":1700000001})"), 0);
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 1700000001"));
    apply(Path::command, R"({"timestamp":5,"radio2":[]})");
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 5", "CommitCfm",
                                       "send_wifi_msg_handle 1 1"));
    manage_locally();
    EXPECT_EQ(apply(Path::command, R"({"timestamp":1,"radio1":[{"ssidenable":1}]})"), -1);
    EXPECT_THAT(effects(), IsEmpty());
    EXPECT_EQ(apply(Path::download, R"({"radio1":[]})"), 0) << "the download asks nobody";
    set("nx.manage.en", "0");
    EXPECT_EQ(apply(Path::command, R"({"radio1":[]})"), 0) << "the mode counts only when managed";
}

TEST_F(Ssid, TracesWhatItDoes) {
    const auto traced = [&](Path path) {
        vap::fail("CommitCfm");
        const std::string output = output_of(
            [&] { apply(path, R"({"radio1":[{"ssidenable":1},{"ssidenable":1,"encrypt":1}]})"); });
        return std::regex_replace(output, std::regex("\\[[0-9]+\\]"), "[]");
    };
    const std::string command = "[wlan_config_set][] : ";
    EXPECT_THAT(traced(Path::command),
                ::testing::HasSubstr("\n" + command + "none !\n" + command + "WPA-PSK !\n" +
                                     command + "commitcfm err! wifi not restart!\n" + command +
                                     "the cJSON_GetObjectItem err!\n"));
    const std::string download = "[config_wifi_wireless_parse][] : [config_wifi_wireless_parse]:[]";
    EXPECT_EQ(traced(Path::download), download + ",none !\n" + download + ",WPA-PSK !\n" +
                                          download + " commitcfm err! wifi not restart!\n");
}

TEST_F(Ssid, SurvivesWhatNoCloudSends) {
    // Texts that the store refuses leave the values that stand.
    const std::string huge(100'000, 'p');
    for (const Path path : paths) {
        EXPECT_EQ(apply(path, R"({"radio1":[{"ssidenable":1,"encrypt":1,"passwd":")" + huge +
                                  R"(","ssid":")" + huge + R"(","vlan":"1000)" +
                                  std::string(4000, '0') + R"("}]})"),
                  0);
        EXPECT_EQ(get("wl2g.ssid0.wpapsk_psk"), "12345678");
        EXPECT_EQ(get("wl2g.ssid0.ssid"), "KALDEN");
        EXPECT_EQ(get("wl2g.ssid0.vlanid"), "1000");
        EXPECT_THAT(effects({"systool_sys_handle"}),
                    // E is 0: the download switches VLANs on for any VLAN in use
                    path == Path::command ? Lines{} : Lines{"systool_sys_handle 0"});
        vap::config_set("wl.0.vlan.enable", "0");
    }
}

TEST_F(Ssid, StopsAfterMoreElementsThanSlotsExist) {
    std::string many = R"({"radio1":[0)";
    for (int i = 1; i < 1'000'000; ++i) {
        many += ",0";
    }
    many += R"(],"radio2":[]})";
    for (const Path path : paths) {
        EXPECT_EQ(apply(path, many), 0);
        EXPECT_EQ(std::ranges::count(effects(), "SetValue wl2g.ssid0.enable 0"), 1024);
    }
}

}  // namespace

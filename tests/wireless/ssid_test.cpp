#include "tests/support/support.h"
#include "wireless/config_wifi.h"
#include "wireless/wireless_api.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

enum class Path { command, download };
constexpr Path paths[] = {Path::command, Path::download};

std::string name_of(Path path) {
    return path == Path::command ? "command" : "download";
}

class Ssid : public test::Device {
  protected:
    /** Hands a configuration to one path; "resp_code", or the parser's result. */
    int apply(Path path, const std::string &config) {
        if (path == Path::command) {
            return answer(wlan_config_set, config).at("resp_code").get<int>();
        }
        cJSON *parsed = cJSON_Parse(config.c_str());
        const int result = config_wifi_wireless_parse(parsed);
        cJSON_Delete(parsed);
        return result;
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
        {"every member missing", "{}", {"enable 0", "nx.time_close 0"}},
        {"on, and every other member missing",
         R"({"ssidenable":1})",
         {"enable 1", "ssid ", "d:type 1", "hide 0", "security none", "bss_maxassoc 0",
          "nx.time_close 0", "c:sta_isolate 0", "c:type 1"}},
        {"a member of another type counts as missing; a key is found in any case",
         R"({"SSIDEnable":1,"ssid":5,"hide":"1","encrypt":"2","security":"0","passwd":7,"vlan":20,
             "max_conn":"3","time_close":true,"timeval":1,"client_quarantine":[1]})",
         {"enable 1", "ssid ", "d:type 1", "hide 0", "security none", "bss_maxassoc 0",
          "nx.time_close 0", "c:sta_isolate 0", "c:type 1"}},
        {"numbers that mean neither on nor off",
         R"({"ssidenable":-3,"hide":7,"encrypt":5,"max_conn":-1,"time_close":2,
             "client_quarantine":2})",
         {"enable -3", "ssid ", "d:type 1", "hide 1", "bss_maxassoc -1", "c:type 1"}},
        {"fractions and numbers beyond 32 bits",
         R"({"ssidenable":1.9,"ssididx":4294967296,"encrypt":1e300,"max_conn":3232235777})",
         {"enable 1", "ssid ", "d:type 1", "hide 0", "security none", "bss_maxassoc -1062731519",
          "nx.time_close 0", "c:sta_isolate 0", "c:type 1"}},
        {"no object at all", "7", {"enable 0", "nx.time_close 0"}},
        {"no object at all", "null", {"enable 0", "nx.time_close 0"}},
        {"an array of objects is no object",
         R"([{"ssidenable":1}])",
         {"enable 0", "nx.time_close 0"}},
    };
    for (const Row &row : rows) {
        for (const Path path : paths) {
            Lines expected = row.keys;
            expected.insert(expected.end(), {"! CommitCfm", "! send_wifi_msg_handle 1 0"});
            EXPECT_THAT(applied(path, "{\"radio1\":[" + std::string(row.ssid) + "]}"),
                        ElementsAreArray(lines_of(path, expected)))
                << name_of(path) << ": " << row.why;
        }
    }
}

TEST_F(Ssid, SetsSecurityByCode) {
    struct Row {
        int encrypt;
        Lines keys;
    } const rows[] = {
        {0, {"security none"}},
        {1, {"security wpapsk", "wpapsk_type psk"}},
        {2, {"security wpapsk", "wpapsk_type psk2"}},
        {3, {"security wpapsk", "wpapsk_type psk2"}},
        {4, {"security wpapsk", "wpapsk_type psk2"}},
        {5, {}},   // what the report says of a mode that it does not know
        {-1, {}},  // not the first mode counted backwards
    };
    for (const Row &row : rows) {
        for (const Path path : paths) {
            Lines expected = row.keys;
            if (expected.size() == 2) {
                expected.insert(expected.end(),
                                {"wpapsk_crypto aes", "wpapsk_psk p", "key_uptime -5"});
            }
            Lines lines = applied(path, R"({"radio2":[{"ssididx":3,"ssidenable":1,"security":0,
                "passwd":"p","update_time":-5,"encrypt":)" +
                                            std::to_string(row.encrypt) + "}]}");
            std::erase_if(lines, [](const std::string &line) {
                return line.find("wpapsk") == std::string::npos &&
                       line.find("security") == std::string::npos &&
                       line.find("key_uptime") == std::string::npos;
            });
            EXPECT_THAT(lines, ElementsAreArray(lines_of(path, expected, "wl5g.ssid3.")))
                << name_of(path) << " " << row.encrypt;
        }
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
            EXPECT_THAT(applied(path, row.config), ElementsAreArray(row.lines))
                << name_of(path) << ": " << row.why;
        }
    }
}

TEST_F(Ssid, GoesOnOrStopsWhenACommitFails) {
    const std::string config = R"({"radio1":[],"radio2":[]})";
    struct Row {
        int failing;  // which commit
        int times;
        Lines command;
        Lines download;
    } const rows[] = {
        {1, 1, {"CommitCfm", "CommitCfm", "send_wifi_msg_handle 1 1"}, {"CommitCfm"}},
        {2,
         1,
         {"CommitCfm", "send_wifi_msg_handle 1 0", "CommitCfm"},
         {"CommitCfm", "send_wifi_msg_handle 1 0", "CommitCfm"}},
        {1, 2, {"CommitCfm", "CommitCfm"}, {"CommitCfm"}},
    };
    for (const Row &row : rows) {
        vap::fail("CommitCfm", row.failing, row.times);
        EXPECT_EQ(apply(Path::command, config), 0) << "a failed commit is not told";
        EXPECT_THAT(effects({"CommitCfm", "send_wifi_msg_handle"}), ElementsAreArray(row.command));
        vap::fail("CommitCfm", row.failing);
        EXPECT_EQ(apply(Path::download, config), -1);
        EXPECT_THAT(effects(), ElementsAreArray(row.download));
    }
}

TEST_F(Ssid, CommandStampsFirstAndSavesTheStampWithARadio) {
    EXPECT_EQ(apply(Path::command, R"({"timestamp":1700000001})"), 0);
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 1700000001"));
    apply(Path::command, R"({"timestamp":5,"radio2":[]})");
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 5", "CommitCfm",
                                       "send_wifi_msg_handle 1 1"));
}

TEST_F(Ssid, CommandIsRefusedUnderLocalManagement) {
    set("nx.manage.en", "1");
    set("nx.manage.mode", "2");
    effects();
    EXPECT_EQ(apply(Path::command, R"({"timestamp":1,"radio1":[{"ssidenable":1}]})"), -1);
    EXPECT_THAT(effects(), IsEmpty());
    EXPECT_EQ(apply(Path::download, R"({"radio1":[]})"), 0) << "the download asks nobody";
    set("nx.manage.en", "0");
    EXPECT_EQ(apply(Path::command, R"({"radio1":[]})"), 0) << "the mode counts only when managed";
}

TEST_F(Ssid, TracesWhatItDoes) {
    const std::string config = R"({"radio1":[{"ssidenable":1},{"ssidenable":1,"encrypt":1},
        {"ssidenable":1,"encrypt":4}]})";
    struct Row {
        Path path;
        Lines patterns;
    } const rows[] = {
        {Path::command,
         {R"(\[wlan_config_set\]\[[0-9]+\] : none !)",
          R"(\[wlan_config_set\]\[[0-9]+\] : WPA-PSK !)",
          R"(\[wlan_config_set\]\[[0-9]+\] : WPA2-PSK !)",
          R"(\[wlan_config_set\]\[[0-9]+\] : commitcfm err! wifi not restart!)",
          R"(\[wlan_config_set\]\[[0-9]+\] : the cJSON_GetObjectItem err!)"}},
        {Path::download,
         {R"(\] : \[config_wifi_wireless_parse\]:\[[0-9]+\],none !)",
          R"(\] : \[config_wifi_wireless_parse\]:\[[0-9]+\],WPA-PSK !)",
          R"(\] : \[config_wifi_wireless_parse\]:\[[0-9]+\],WPA2-PSK !)",
          R"(\] : \[config_wifi_wireless_parse\]:\[[0-9]+\] commitcfm err! wifi not restart!)"}},
    };
    for (const Row &row : rows) {
        vap::fail("CommitCfm");
        const std::string output = output_of([&] { apply(row.path, config); });
        for (const std::string &pattern : row.patterns) {
            EXPECT_THAT(output, ::testing::ContainsRegex(pattern + "\n"));
        }
    }
}

TEST_F(Ssid, SurvivesWhatNoCloudSends) {
    // Texts that the store refuses leave the values that stand.
    const std::string huge(10'000'000, 'p');
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

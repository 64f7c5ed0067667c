#include "json.h"
#include "tests/support/support.h"
#include "wireless/config_wifi.h"
#include "wireless/wireless_api.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Lines = std::vector<std::string>;

enum class Path { rule_command, rule_download, optimize_command, optimize_download };

class Radio : public test::Device {
  protected:
    Radio() {
        for (const char *prefix : {"wl2g.public.", "wl5g.public."}) {
            set(prefix + std::string("web_max_power"), "25");
            set(prefix + std::string("min_power"), "5");
        }
    }

    /** Hands a rule list or an optimisation to its path; "resp_code", or the
     *  parser's result. */
    int apply(Path path, const std::string &value) {
        switch (path) {
            case Path::rule_command:
                return answer(radio_config_set, "{\"rf_rule\":" + value + "}")
                    .at("resp_code")
                    .get<int>();
            case Path::optimize_command:
                return answer(radio_opt_set, "{\"rf_optimize\":" + value + "}")
                    .at("resp_code")
                    .get<int>();
            case Path::rule_download:
                return parse(config_wifi_radio_config_parse, "{\"rf_rule\":" + value + "}");
            case Path::optimize_download:
                return parse(config_wifi_radio_optimiza_parse, value);
        }
        return -2;
    }

    /** The journal of one call, without the stamp of the commands. */
    Lines applied(Path path, const std::string &value) {
        effects();
        result_ = apply(path, value);
        Lines lines = effects();
        std::erase(lines, "SetValue nx.wireless_timestamp 0");
        return lines;
    }

    /** The value that one call gives a key; "(none)" when it does not set it. */
    std::string stored(Path path, const std::string &value, const std::string &key) {
        for (const std::string &line : applied(path, value)) {
            if (line.starts_with("SetValue " + key + " ")) {
                return line.substr(10 + key.size());
            }
        }
        return "(none)";
    }

    int result_ = 0;

  private:
    static int parse(int (*parser)(const cJSON *), const std::string &text) {
        const Json parsed(cJSON_Parse(text.c_str()));
        return parser(parsed.get());
    }
};

const Lines rule_2g{"SetValue wl2g.public.enable 1", "SetValue wl2g.public.rssi_max -80"};
const Lines rule_5g{"SetValue wl5g.public.enable 0", "SetValue wl5g.public.rssi_max -90"};
const Lines channel_2g{"SetValue wl2g.public.channel 11", "SetValue wl2g.public.current_power 17"};
const Lines channel_5g{"SetValue wl5g.public.channel 149", "SetValue wl5g.public.current_power 20"};
const Lines country_2g{
    "SetValue wl2g.public.countrycode_all 1", "SetValue wl2g.public.countrycode_other 0",
    "SetValue wl2g.public.country_code CN", "SetValue wl2g.public.country_code_convert CN"};
const Lines country_5g{
    "SetValue wl5g.public.countrycode_all 1", "SetValue wl5g.public.countrycode_other 0",
    "SetValue wl5g.public.country_code CN", "SetValue wl5g.public.country_code_convert CN",
    "SetValue wl5g.public.country_code US"};
const Lines sideband{"SetValue wl2g.public.sideband_flag lower"};
const Lines saved_2g{"CommitCfm", "send_wifi_msg_handle 1 0"};
const Lines saved_5g{"CommitCfm", "send_wifi_msg_handle 1 1"};

Lines join(std::initializer_list<Lines> parts) {
    Lines all;
    for (const Lines &part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

constexpr const char *rules = R"([
    {"channel":11,"power":17,"rssi":-80,"radioenable":1},
    {"channel":149,"rssi":-100,"radioenable":0}])";
constexpr const char *optimisation =
    R"({"is_access":1,"channel_1":11,"power_1":17,"channel_2":149,"channel_3":1,"power_3":1})";

TEST_F(Radio, SetsKeyByKeyOnEachPath) {
    set("wl2g.public.bandwidth", "40");
    struct Row {
        const char *why;
        Path path;
        const char *value;
        const char *mode;  // of the 2.4 GHz radio
        Lines lines;
    } const rows[] = {
        {"rule, command", Path::rule_command, rules, "ap",
         join({rule_2g, channel_2g, country_2g, sideband, saved_2g, rule_5g, channel_5g, country_5g,
               saved_5g})},
        {"rule, download", Path::rule_download, rules, "ap",
         join({rule_2g, channel_2g, country_2g, sideband, saved_2g, rule_5g, channel_5g, country_5g,
               saved_5g})},
        {"optimisation, command", Path::optimize_command, optimisation, "ap",
         join({channel_2g, country_2g, sideband, saved_2g, channel_5g, country_5g, saved_5g})},
        {"optimisation, download: no country", Path::optimize_download, optimisation, "ap",
         join({channel_2g, sideband, saved_2g, channel_5g, saved_5g})},
        {"a radio in client mode, rule, command: switched, saved and restarted", Path::rule_command,
         rules, "apclient", join({rule_2g, saved_2g, rule_5g, channel_5g, country_5g, saved_5g})},
        {"a radio in client mode, rule, download: switched, not saved", Path::rule_download, rules,
         "apclient", join({rule_2g, rule_5g, channel_5g, country_5g, saved_5g})},
        {"a radio in client mode, optimisation, command: left alone", Path::optimize_command,
         optimisation, "apclient", join({channel_5g, country_5g, saved_5g})},
        {"a radio in client mode, optimisation, download: nobody asks", Path::optimize_download,
         optimisation, "apclient", join({channel_2g, sideband, saved_2g, channel_5g, saved_5g})},
        {"the mode is compared exactly", Path::optimize_command, optimisation, "APCLIENT",
         join({channel_2g, country_2g, sideband, saved_2g, channel_5g, country_5g, saved_5g})},
    };
    for (const Row &row : rows) {
        set("wl2g.public.mode", row.mode);
        EXPECT_THAT(applied(row.path, row.value), ElementsAreArray(row.lines)) << row.why;
        EXPECT_EQ(result_, 0) << row.why;
    }
}

TEST_F(Radio, GoesOnOrStopsWhenACommitFails) {
    struct Row {
        Path path;
        const char *value;
        int result;
        Lines restarts;  // of the Wi-Fi, with the first commit failing
    } const rows[] = {
        {Path::rule_command, rules, 0, {"send_wifi_msg_handle 1 1"}},
        {Path::rule_download, rules, -1, {}},
        {Path::optimize_command, optimisation, 0, {"send_wifi_msg_handle 1 1"}},
        {Path::optimize_download, optimisation, 0, {"send_wifi_msg_handle 1 1"}},
    };
    for (const Row &row : rows) {
        vap::fail("CommitCfm");
        EXPECT_EQ(apply(row.path, row.value), row.result);
        EXPECT_THAT(effects({"send_wifi_msg_handle"}), ElementsAreArray(row.restarts));
        vap::fail("CommitCfm", 2);
        EXPECT_EQ(apply(row.path, row.value), row.result);
        EXPECT_THAT(effects({"send_wifi_msg_handle"}), ElementsAre("send_wifi_msg_handle 1 0"));
    }
    vap::fail("CommitCfm");
    EXPECT_THAT(output_of([&] { apply(Path::rule_download, rules); }),
                ::testing::ContainsRegex(R"(\] : \[config_wifi_radio_config_parse\]:\[[0-9]+\], )"
                                         "commitcfm err!$"))
        << "without a line end";
}

TEST_F(Radio, BoundsThePower) {
    struct Row {
        const char *why;
        const char *highest;
        const char *lowest;
        const char *power;  // of the request, as a member
        const char *stored;
        const char *downloaded;  // by a downloaded rule, which knows no lower bound
    } const rows[] = {
        {"within", "25", "5", R"("power":20)", "20", "20"},
        {"above", "17", "5", R"("power":20)", "17", "17"},
        {"below", "25", "5", R"("power":2)", "5", "2"},
        {"negative", "25", "0", R"("power":-2)", "0", "0"},
        {"the lower bound wins", "17", "22", R"("power":20)", "22", "17"},
        {"missing: 20", "25", "5", R"("rssi":0)", "20", "20"},
        {"a text is missing", "25", "5", R"("power":"10")", "20", "20"},
        {"no bounds are 0", "", "", R"("power":20)", "0", "0"},
        {"no upper bound", "", "7", R"("power":20)", "7", "0"},
        {"a negative upper bound", "-4", "-9", R"("power":20)", "-4", "0"},
        {"bounds beyond 32 bits", "99999999999", "-99999999999", R"("power":2147483647)",
         "2147483647", "2147483647"},
        {"out of range wraps", "25", "-5", R"("power":4294967295)", "-1", "0"},
    };
    const std::string key = "wl2g.public.current_power";
    for (const Row &row : rows) {
        set("wl2g.public.web_max_power", row.highest);
        set("wl2g.public.min_power", row.lowest);
        const std::string rule = std::string("[{") + row.power + "}]";
        std::string optimize = std::string("{\"channel_2\":-1,") + row.power + "}";
        if (const size_t at = optimize.find("power"); at != std::string::npos) {
            optimize.replace(at, 5, "power_1");
        }
        EXPECT_EQ(stored(Path::rule_command, rule, key), row.stored) << row.why;
        EXPECT_EQ(stored(Path::rule_download, rule, key), row.downloaded) << row.why;
        EXPECT_EQ(stored(Path::optimize_command, optimize, key), row.stored) << row.why;
        EXPECT_EQ(stored(Path::optimize_download, optimize, key), row.stored) << row.why;
    }
}

TEST_F(Radio, PutsTheSidebandBesideTheChannel) {
    struct Row {
        const char *bandwidth;
        const char *channel;
        const char *stored;
    } const rows[] = {
        {"40", "0", "none"},     {"40", "1", "upper"},  {"40", "4", "upper"},
        {"40", "5", "lower"},    {"40", "13", "lower"}, {"0", "3", "upper"},
        {"40", "-7", "upper"},   {"20", "3", "(none)"},  // no second half
        {"", "3", "(none)"},      // compared as text: a missing width is not "0"
        {"040", "3", "(none)"},   // compared as text
        {"40", "\"9\"", "none"},  // a text is a missing channel
    };
    for (const Row &row : rows) {
        set("wl2g.public.bandwidth", row.bandwidth);
        set("wl5g.public.bandwidth", row.bandwidth);
        const std::string rule = std::string("{\"channel\":") + row.channel + "}";
        for (const Path path : {Path::rule_command, Path::rule_download}) {
            EXPECT_EQ(stored(path, "[" + rule + "]", "wl2g.public.sideband_flag"), row.stored);
            EXPECT_EQ(stored(path, "[" + rule + "," + rule + "]", "wl5g.public.sideband_flag"),
                      "(none)");
        }
    }
}

TEST_F(Radio, RaisesTheSignalBoundAndKnowsTwoStates) {
    struct Row {
        const char *rule;
        Lines lines;
    } const rows[] = {
        {R"({"rssi":-91,"radioenable":1})", {"enable 1", "rssi_max -90"}},
        {R"({"rssi":-50,"radioenable":0})", {"enable 0", "rssi_max -50"}},
        {R"({"rssi":5,"radioenable":2})", {"rssi_max 5"}},  // neither on nor off
        {R"({"radioenable":-1})", {"rssi_max -90"}},
        {R"({"radioenable":"1","rssi":"-50"})", {"enable 0", "rssi_max -90"}},
        {"[]", {"enable 0", "rssi_max -90"}},  // no object: as if empty
        {"null", {"enable 0", "rssi_max -90"}},
    };
    for (const Row &row : rows) {
        for (const Path path : {Path::rule_command, Path::rule_download}) {
            Lines lines = applied(path, "[" + std::string(row.rule) + "]");
            lines.resize(row.lines.size());
            Lines expected;
            for (const std::string &line : row.lines) {
                expected.push_back("SetValue wl2g.public." + line);
            }
            EXPECT_THAT(lines, ElementsAreArray(expected)) << row.rule;
        }
    }
}

TEST_F(Radio, MapsRulesToRadiosByPosition) {
    struct Row {
        const char *why;
        size_t rules;
        size_t wifi_restarts;
    } const rows[] = {
        {"none", 0, 0},
        {"one", 1, 1},
        {"both", 2, 2},
        {"the third radio is not set", 3, 2},
        {"after that, 5 GHz again", 4, 3},
        {"and again", 5, 4},
    };
    for (const Row &row : rows) {
        std::string list;
        for (size_t i = 0; i < row.rules; ++i) {
            list += (i > 0 ? "," : "") + ("{\"channel\":" + std::to_string(i + 1) + "}");
        }
        for (const Path path : {Path::rule_command, Path::rule_download}) {
            applied(path, "[]");
            applied(path, "[" + list + "]");
            apply(path, "[" + list + "]");
            Lines restarts = effects({"send_wifi_msg_handle"});
            EXPECT_THAT(restarts, SizeIs(row.wifi_restarts)) << row.why;
            if (row.rules > 1) {
                EXPECT_EQ(std::ranges::count(restarts, "send_wifi_msg_handle 1 0"), 1);
                const size_t last = row.rules == 3 ? 2 : row.rules;
                EXPECT_EQ(get("wl5g.public.channel"), std::to_string(last)) << row.why;
                EXPECT_EQ(get("wl2g.public.channel"), "1") << row.why;
            }
        }
    }
}

TEST_F(Radio, StopsAfterMoreRulesThanRadiosExist) {
    std::string list = "[{}";
    for (int i = 1; i < 1'000'000; ++i) {
        list += ",{}";
    }
    list += "]";
    apply(Path::rule_command, list);
    EXPECT_THAT(effects({"CommitCfm"}), SizeIs(63)) << "64 rules, without the third";
}

TEST_F(Radio, NeedsRules) {
    for (const char *missing : {"{}", R"({"rf_rule":{"0":{}}})", R"({"rf_rule":null})", "[1]"}) {
        EXPECT_EQ(answer(radio_config_set, missing).at("resp_code"), -1) << missing;
        EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 0"))
            << "the stamp stays pending";
        const Json parsed(cJSON_Parse(missing));
        EXPECT_EQ(config_wifi_radio_config_parse(parsed.get()), -1) << missing;
        EXPECT_THAT(effects(), IsEmpty());
    }
    EXPECT_EQ(call(radio_config_set, R"({"timestamp":12,"opt":1,"rf_rule":[]})"),
              "{\n\t\"resp_code\":\t0\n}");
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 12"));
    EXPECT_THAT(output_of([&] { call(radio_config_set); }),
                HasSubstr("] : the cJSON_GetObjectItem err!\n"));
}

TEST_F(Radio, LeavesARadioOutOfAnOptimisation) {
    struct Row {
        const char *optimize;
        Lines restarts;
    } const rows[] = {
        {R"({"channel_1":1,"channel_2":-1})", {"send_wifi_msg_handle 1 0"}},
        {R"({"channel_1":-1,"channel_2":36})", {"send_wifi_msg_handle 1 1"}},
        {R"({"channel_1":-1,"channel_2":-1})", {}},
        {R"({"channel_1":4294967295,"channel_2":-1.5})", {}},              // both read as -1
        {"{}", {"send_wifi_msg_handle 1 0", "send_wifi_msg_handle 1 1"}},  // channel 0: automatic
        {R"({"channel_1":"-1"})", {"send_wifi_msg_handle 1 0", "send_wifi_msg_handle 1 1"}},
    };
    for (const Row &row : rows) {
        for (const Path path : {Path::optimize_command, Path::optimize_download}) {
            apply(path, row.optimize);
            EXPECT_THAT(effects({"send_wifi_msg_handle"}), ElementsAreArray(row.restarts))
                << row.optimize;
        }
    }
}

TEST_F(Radio, ReportsEachOptimisationForItself) {
    const std::string nothing = R"({"rf_optimize":{"timestamp":9,"channel_1":-1,"channel_2":-1}})";
    EXPECT_EQ(call(radio_opt_set, nothing), "{\n\t\"resp_code\":\t0\n}");
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 9"));
    vap::advance(30);
    call(radio_opt_set, nothing);
    vap::advance(9.5);
    EXPECT_THAT(uploads("nx_api_radio_optimiza_back"), IsEmpty()) << "39.5 seconds";
    vap::advance(1);
    EXPECT_THAT(uploads("nx_api_radio_optimiza_back"), SizeIs(1));
    vap::advance(29);
    EXPECT_THAT(uploads("nx_api_radio_optimiza_back"), SizeIs(1)) << "39.5 seconds of the second";
    vap::advance(1);
    const auto results = uploads("nx_api_radio_optimiza_back");
    ASSERT_THAT(results, SizeIs(2));
    const std::string text = "{\n\t\"result\":\t0\n}";
    for (const nxapi::Upload &result : results) {
        EXPECT_EQ(result.data, text + '\0');
    }
    vap::advance(100);
    EXPECT_THAT(uploads("nx_api_radio_optimiza_back"), SizeIs(2));
}

TEST_F(Radio, ReportsNoOptimisationThatDidNotRun) {
    EXPECT_EQ(answer(radio_opt_set, R"({"rf_optimize":[]})").at("resp_code"), -1);
    apply(Path::optimize_download, "{}");
    set("nx.manage.en", "1");
    set("nx.manage.mode", "2");
    EXPECT_EQ(apply(Path::optimize_command, optimisation), -1);
    EXPECT_EQ(apply(Path::rule_command, rules), -1);
    effects({});
    EXPECT_EQ(apply(Path::rule_download, "[]"), 0) << "the downloads ask nobody";
    EXPECT_EQ(apply(Path::optimize_command, "7"), -1);
    EXPECT_THAT(effects(), IsEmpty());
    vap::advance(100);
    EXPECT_THAT(uploads("nx_api_radio_optimiza_back"), IsEmpty());
}

TEST_F(Radio, TracesHowTheReportWent) {
    EXPECT_THAT(output_of([&] {
                    call(radio_opt_set, R"({"rf_optimize":{"channel_1":-1,"channel_2":-1}})");
                    vap::advance(40);
                }),
                HasSubstr("] : nx_api_radio_optimiza_back succeed! data:{\n\t\"result\":\t0\n}\n"));
    refuse("nx_api_radio_optimiza_back");
    EXPECT_THAT(output_of([&] {
                    call(radio_opt_set, R"({"rf_optimize":{"channel_1":-1,"channel_2":-1}})");
                    vap::advance(40);
                }),
                HasSubstr("] : nx_api_radio_optimiza_back err!\n"));
}

}  // namespace

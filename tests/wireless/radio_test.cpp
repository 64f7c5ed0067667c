#include <regex>

#include "tests/support/support.h"
#include "wireless/config_wifi.h"
#include "wireless/wireless_api.h"

namespace {

using test::Lines;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

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
                return verdict(radio_config_set, "{\"rf_rule\":" + value + "}");
            case Path::optimize_command:
                return verdict(radio_opt_set, "{\"rf_optimize\":" + value + "}");
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
};

const Lines state_2g{"SetValue wl2g.public.enable 1", "SetValue wl2g.public.rssi_max -80"};
const Lines state_5g{"SetValue wl5g.public.enable 0", "SetValue wl5g.public.rssi_max -90"};
const Lines channel_2g{"SetValue wl2g.public.channel 11", "SetValue wl2g.public.current_power 17"};
const Lines channel_5g{"SetValue wl5g.public.channel 149", "SetValue wl5g.public.current_power 20"};
const Lines country_2g{
    "SetValue wl2g.public.countrycode_all 1", "SetValue wl2g.public.countrycode_other 0",
    "SetValue wl2g.public.country_code CN", "SetValue wl2g.public.country_code_convert CN"};
const Lines country_5g{
    "SetValue wl5g.public.countrycode_all 1", "SetValue wl5g.public.countrycode_other 0",
    "SetValue wl5g.public.country_code CN", "SetValue wl5g.public.country_code_convert CN",
    "SetValue wl5g.public.country_code US"};
const Lines saved_2g{"SetValue wl2g.public.sideband_flag lower", "CommitCfm",
                     "send_wifi_msg_handle 1 0"};
const Lines saved_5g{"CommitCfm", "send_wifi_msg_handle 1 1"};
const Lines client_2g{"CommitCfm", "send_wifi_msg_handle 1 0"};

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
         join({state_2g, channel_2g, country_2g, saved_2g, state_5g, channel_5g, country_5g,
               saved_5g})},
        {"rule, download", Path::rule_download, rules, "ap",
         join({state_2g, channel_2g, country_2g, saved_2g, state_5g, channel_5g, country_5g,
               saved_5g})},
        {"optimisation, command; the mode is compared exactly", Path::optimize_command,
         optimisation, "APCLIENT",
         join({channel_2g, country_2g, saved_2g, channel_5g, country_5g, saved_5g})},
        {"optimisation, download: no country, and nobody asks for the mode",
         Path::optimize_download, optimisation, "apclient",
         join({channel_2g, saved_2g, channel_5g, saved_5g})},
        {"a radio in client mode, rule, command: switched, saved and restarted", Path::rule_command,
         rules, "apclient",
         join({state_2g, client_2g, state_5g, channel_5g, country_5g, saved_5g})},
        {"a radio in client mode, rule, download: switched, not saved", Path::rule_download, rules,
         "apclient", join({state_2g, state_5g, channel_5g, country_5g, saved_5g})},
        {"a radio in client mode, optimisation, command: left alone", Path::optimize_command,
         optimisation, "apclient", join({channel_5g, country_5g, saved_5g})},
    };
    for (const Row &row : rows) {
        set("wl2g.public.mode", row.mode);
        EXPECT_EQ(applied(row.path, row.value), row.lines) << row.why;
        EXPECT_EQ(result_, 0) << row.why;
    }
}

TEST_F(Radio, GoesOnOrStopsWhenACommitFails) {
    for (const Path path : {Path::rule_command, Path::rule_download, Path::optimize_command,
                            Path::optimize_download}) {
        const bool stops = path == Path::rule_download;
        const bool ruled = stops || path == Path::rule_command;
        vap::fail("CommitCfm");
        EXPECT_EQ(apply(path, ruled ? rules : optimisation), stops ? -1 : 0);
        EXPECT_EQ(effects({"send_wifi_msg_handle"}),
                  stops ? Lines() : Lines{"send_wifi_msg_handle 1 1"});
    }
    vap::fail("CommitCfm");
    EXPECT_THAT(output_of([&] { apply(Path::rule_download, rules); }),
                ::testing::EndsWith("], commitcfm err!"))
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
        {"below", "25", "5", R"("power":2)", "5", "2"},
        {"negative", "25", "0", R"("power":-2)", "0", "0"},
        {"the lower bound wins", "17", "22", R"("power":20)", "22", "17"},
        {"no number: 20", "25", "5", R"("power":"10")", "20", "20"},
        {"no bounds are 0", "", "", R"("power":20)", "0", "0"},
        {"a negative upper bound", "-4", "-9", R"("power":20)", "-4", "0"},
    };
    const std::string key = "wl2g.public.current_power";
    for (const Row &row : rows) {
        set("wl2g.public.web_max_power", row.highest);
        set("wl2g.public.min_power", row.lowest);
        const std::string rule = std::string("[{") + row.power + "}]";
        const std::string optimize =
            std::regex_replace("{" + std::string(row.power) + "}", std::regex("power"), "power_1");
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
        {"40", "0", "none"},     {"40", "1", "upper"},  {"40", "4", "upper"},  {"40", "5", "lower"},
        {"0", "13", "lower"},    {"40", "-7", "upper"}, {"20", "3", "(none)"},  // no second half
        {"", "3", "(none)"},      // compared as text: a missing width is not "0"
        {"40", "\"9\"", "none"},  // a text is a missing channel
    };
    for (const Row &row : rows) {
        set("wl2g.public.bandwidth", row.bandwidth);
        set("wl5g.public.bandwidth", row.bandwidth);
        const std::string rule = std::string("{\"channel\":") + row.channel + "}";
        const std::string list = "[" + rule + "," + rule + "]";
        EXPECT_EQ(stored(Path::rule_command, list, "wl2g.public.sideband_flag"), row.stored);
        EXPECT_EQ(stored(Path::rule_command, list, "wl5g.public.sideband_flag"), "(none)");
    }
}

TEST_F(Radio, RaisesTheSignalBoundAndKnowsTwoStates) {
    struct Row {
        const char *rule, *enable, *rssi;
    } const rows[] = {
        {R"({"rssi":-91,"radioenable":1})", "1", "-90"},
        {R"({"rssi":-50,"radioenable":0})", "0", "-50"},
        {R"({"rssi":5,"radioenable":2})", "(none)", "5"},  // neither on nor off
        {R"({"radioenable":-1})", "(none)", "-90"},
        {R"({"radioenable":"1","rssi":"-50"})", "0", "-90"},
        {"null", "0", "-90"},  // no object: as if empty
    };
    for (const Row &row : rows) {
        const std::string list = "[" + std::string(row.rule) + "]";
        EXPECT_EQ(stored(Path::rule_download, list, "wl2g.public.enable"), row.enable) << row.rule;
        EXPECT_EQ(stored(Path::rule_download, list, "wl2g.public.rssi_max"), row.rssi) << row.rule;
    }
}

TEST_F(Radio, MapsRulesToRadiosByPosition) {
    std::string list;
    // The third radio is not set; after that, 5 GHz again.
    const Lines last_of_5g{"", "(none)", "2", "2", "4", "5"};
    for (size_t count = 1; count <= 5; ++count) {
        list += (count > 1 ? ",{\"channel\":" : "{\"channel\":") + std::to_string(count) + "}";
        set("wl5g.public.channel", "(none)");
        apply(Path::rule_command, "[" + list + "]");
        EXPECT_EQ(get("wl2g.public.channel"), "1");
        EXPECT_EQ(get("wl5g.public.channel"), last_of_5g[count]);
        EXPECT_THAT(effects({"send_wifi_msg_handle"}), SizeIs(count > 2 ? count - 1 : count));
    }
    for (int i = 5; i < 1'000'000; ++i) {
        list += ",{}";
    }
    apply(Path::rule_command, "[" + list + "]");
    EXPECT_THAT(effects({"CommitCfm"}), SizeIs(63)) << "64 rules, without the third";
}

TEST_F(Radio, NeedsRules) {
    for (const char *missing : {"{}", R"({"rf_rule":{"0":{}}})", "[1]"}) {
        EXPECT_EQ(verdict(radio_config_set, missing), -1) << missing;
        EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 0"))
            << "the stamp stays pending";
        EXPECT_EQ(parse(config_wifi_radio_config_parse, missing), -1) << missing;
        EXPECT_THAT(effects(), IsEmpty());
    }
    EXPECT_EQ(verdict(radio_config_set, R"({"timestamp":12,"opt":1,"rf_rule":[]})"), 0);
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 12"));
}

TEST_F(Radio, LeavesARadioOutOfAnOptimisation) {
    const std::string slow = "send_wifi_msg_handle 1 0";
    const std::string fast = "send_wifi_msg_handle 1 1";
    struct Row {
        const char *optimize;
        Lines restarts;
    } const rows[] = {
        {R"({"channel_1":1,"channel_2":-1})", {slow}},
        {R"({"channel_1":4294967295,"channel_2":36})", {fast}},  // read as -1
        {R"({"channel_1":"-1"})", {slow, fast}},                 // channel 0: automatic
    };
    for (const Row &row : rows) {
        for (const Path path : {Path::optimize_command, Path::optimize_download}) {
            apply(path, row.optimize);
            EXPECT_EQ(effects({"send_wifi_msg_handle"}), row.restarts) << row.optimize;
        }
    }
}

TEST_F(Radio, ReportsEachOptimisationForItself) {
    const std::string nothing = R"({"rf_optimize":{"timestamp":9,"channel_1":-1,"channel_2":-1}})";
    EXPECT_EQ(verdict(radio_opt_set, nothing), 0);
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.wireless_timestamp 9"));
    vap::advance(30);
    call(radio_opt_set, nothing);
    const std::string report =
        "nx_api_radio_optimiza_back {\n\t\"result\":\t0\n}" + std::string(1, '\0');
    effects();
    vap::advance(9.9);
    EXPECT_THAT(effects(), IsEmpty()) << "39.9 seconds";
    vap::advance(0.2);
    EXPECT_THAT(effects(), ElementsAre(report));
    vap::advance(29.8);
    EXPECT_THAT(effects(), IsEmpty()) << "39.9 seconds of the second";
    vap::advance(100);
    EXPECT_THAT(effects(), ElementsAre(report));
}

TEST_F(Radio, ReportsNoOptimisationThatDidNotRun) {
    apply(Path::optimize_download, "{}");
    manage_locally();
    effects();
    EXPECT_EQ(apply(Path::optimize_command, optimisation), -1);
    EXPECT_EQ(apply(Path::rule_command, rules), -1);
    EXPECT_EQ(apply(Path::rule_download, "[]"), 0) << "the downloads ask nobody";
    set("nx.manage.en", "0");
    EXPECT_EQ(apply(Path::optimize_command, "[]"), -1);
    vap::advance(100);
    EXPECT_THAT(effects(), IsEmpty());
}

}  // namespace

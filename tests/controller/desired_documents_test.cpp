#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/controller/desired_samples.h"

namespace {

using desired::Json;
using test::changed;
using test::sample_configuration;

std::string pointers(const desired::Checked &checked) {
    std::string all;
    for (const desired::Problem &problem : checked.problems) {
        all += (all.empty() ? "" : " ") + problem.pointer;
    }
    return all;
}

Json wpa2(const std::string &name, const std::string &phrase = "welcome-2024") {
    return {{"name", name}, {"bands", {"5"}}, {"security", "wpa2"}, {"passphrase", phrase}};
}

TEST(Documents, FillInWhatIsLeftOutAndStayAsTheyAre) {
    const auto site = desired::check_site(
        Json::parse(R"({"name": "Harbour", "project_id": 42, "cloud_id": "cloud-7"})"));
    EXPECT_EQ(site.document.dump(),
              R"({"id":null,"name":"Harbour","time_zone":"+8","region":38,"project_id":42,)"
              R"("cloud_id":"cloud-7","policies":{"bind":"unbound","drift":"show"}})");
    EXPECT_EQ(desired::check_site(site.document).document, site.document);

    const auto configuration = desired::check_configuration(Json::parse(
        R"({"ssids": [{"name": "Guests", "bands": ["5", "2.4"], "security": "open"}],
            "radios": {"5": {"channel": 36}, "2.4": {}}})"));
    EXPECT_EQ(
        configuration.document.dump(),
        R"({"ssids":[{"name":"Guests","bands":["2.4","5"],"enabled":true,"hidden":false,)"
        R"("security":"open","cipher":"aes","passphrase":null,"vlan":null,"isolate_clients":false,)"
        R"("max_clients":0,"off_times":null}],)"
        R"("radios":{"2.4":{"enabled":true,"channel":"auto","power_dbm":20,"min_signal_dbm":-90},)"
        R"("5":{"enabled":true,"channel":36,"power_dbm":20,"min_signal_dbm":-90}},"reboot":null})");
    EXPECT_EQ(desired::check_configuration(configuration.document).document,
              configuration.document);
}

TEST(Documents, OneZoneHasOneSpelling) {
    for (const auto &[given, kept] :
         std::vector<std::pair<const char *, const char *>>{{"8", "+8"},
                                                            {"+08", "+8"},
                                                            {"-3.50", "-3.5"},
                                                            {"-0", "+0"},
                                                            {"+5.75", "+5.75"},
                                                            {"14", "+14"},
                                                            {"+14.5", ""},
                                                            {"-12.25", ""},
                                                            {"", ""},
                                                            {"+", ""},
                                                            {"1e1", ""},
                                                            {"nan", ""},
                                                            {"0x8", ""},
                                                            {"8 ", ""},
                                                            {"1.2.3", ""},
                                                            {"+-8", ""}}) {
        const auto checked = desired::check_site(
            {{"name", "x"}, {"project_id", 1}, {"cloud_id", "c"}, {"time_zone", given}});
        EXPECT_EQ(checked.ok() ? checked.document["time_zone"] : Json(""), kept) << given;
    }
}

TEST(Documents, NameTheFieldThatIsWrong) {
    struct Row {
        const char *pointer; /**< where the sample gets the value */
        std::string value;
        const char *problems; /**< "" for a value that is taken */
    };
    const std::string letters32(32, 's');
    const std::string sixty_three(63, '~');
    const std::string key64(64, 'F');
    const auto quoted = [](const std::string &text) { return "\"" + text + "\""; };
    const Row rows[] = {
        {"/ssids/0/name", quoted(letters32), ""},
        {"/ssids/0/name", "\"\"", "/ssids/0/name"},
        {"/ssids/0/name", "\"a\\u0000b\"", "/ssids/0/name"},
        // 33 bytes, though 11 characters
        {"/ssids/0/name",
         "\"\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\xe2\x82"
         "\xac\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\xe2\x82\xac\"",
         "/ssids/0/name"},
        {"/ssids/0/bands", "[]", "/ssids/0/bands"},
        {"/ssids/0/bands", "[\"5\", \"5\"]", "/ssids/0/bands"},
        {"/ssids/0/bands", "[\"5\", \"6\"]", "/ssids/0/bands"},
        {"/ssids/0/bands", "{\"5\": \"5\"}", "/ssids/0/bands"},
        {"/ssids/0/enabled", "1", "/ssids/0/enabled"},
        {"/ssids/0/security", "\"wpa3\"", "/ssids/0/security"},
        {"/ssids/0/cipher", "null", "/ssids/0/cipher"},
        {"/ssids/0/passphrase", quoted(sixty_three), ""},
        {"/ssids/0/passphrase", quoted(key64), ""},
        {"/ssids/0/passphrase", quoted(sixty_three + "~"), "/ssids/0/passphrase"},
        {"/ssids/0/passphrase", "\"1234567\"", "/ssids/0/passphrase"},
        {"/ssids/0/passphrase", "\"caf\u00e9-caf\u00e9\"", "/ssids/0/passphrase"},
        {"/ssids/0/passphrase", "null", "/ssids/0/passphrase"},  // needed, and none is known
        {"/ssids/1/passphrase", "\"12345678\"", "/ssids/1/passphrase"},  // open
        {"/ssids/0/vlan", "4094", ""},
        {"/ssids/0/vlan", "4095", "/ssids/0/vlan"},
        {"/ssids/0/vlan", "0", "/ssids/0/vlan"},
        {"/ssids/0/vlan", "\"30\"", "/ssids/0/vlan"},
        {"/ssids/0/vlan", "18446744073709551615", "/ssids/0/vlan"},
        {"/ssids/0/max_clients", "1.5", "/ssids/0/max_clients"},
        {"/ssids/0/max_clients", "-1", "/ssids/0/max_clients"},
        {"/ssids/0/off_times", "\"22:00\\n\"", "/ssids/0/off_times"},
        {"/ssids/0/vlna", "30", "/ssids/0/vlna"},
        {"/ssids/1/name", "\"Staff\"", "/ssids/1/name"},  // stands there already
        {"/ssids/0", "7", "/ssids/0"},
        {"/ssids", "{}", "/ssids"},
        {"/radios/2.4/channel", "13", ""},
        {"/radios/2.4/channel", "14", "/radios/2.4/channel"},
        {"/radios/2.4/channel", "36", "/radios/2.4/channel"},
        {"/radios/2.4/channel", "0", "/radios/2.4/channel"},
        {"/radios/5/channel", "165", ""},
        {"/radios/5/channel", "38", "/radios/5/channel"},
        {"/radios/5/power_dbm", "31", "/radios/5/power_dbm"},
        {"/radios/5/min_signal_dbm", "1", "/radios/5/min_signal_dbm"},
        {"/radios/6", "{}", "/radios/6"},
        {"/radios", "{\"5\": {}}", "/radios/2.4"},
        {"/radios", "[]", "/radios"},
        {"/reboot/at", "\"4:30\"", "/reboot/at"},
        {"/reboot/at", "\"24:00\"", "/reboot/at"},
        {"/reboot/days", "[]", "/reboot/days"},
        {"/reboot/every_minutes", "60", "/reboot/at /reboot/days"},  // one form, not both
        {"/reboot", "{\"every_minutes\": 9}", "/reboot/every_minutes"},
        {"/reboot", "{}", "/reboot/at /reboot/days"},
        {"/a~1b", "1", "/a~1b"},
    };
    for (const Row &row : rows) {
        const auto checked = desired::check_configuration(
            changed(sample_configuration(), row.pointer, Json::parse(row.value)));
        EXPECT_EQ(pointers(checked), row.problems) << row.pointer << " " << row.value;
    }
    EXPECT_EQ(pointers(desired::check_configuration(Json::array())), "");
    EXPECT_FALSE(desired::check_configuration(Json::array()).ok());
    EXPECT_EQ(pointers(desired::check_configuration(Json::object())), "/ssids /radios");
    EXPECT_EQ(pointers(desired::check_site(Json::parse(
                  R"({"id": "", "name": "", "region": -1, "project_id": 10000000,
                      "policies": {"bind": "all", "x": 1}})"))),
              "/id /name /region /project_id /cloud_id /policies/x /policies/bind");
}

TEST(Documents, AnyValueAnywhereIsTakenOrNamed) {
    const Json values[] = {nullptr, true, 7, -1, 1.5, "", "x", Json::array(), Json::object()};
    const auto expect_answer = [](const Json &whole, const Json &value, auto check) {
        const Json leaves = whole.flatten();
        for (const auto &[pointer, leaf] : leaves.items()) {
            for (auto place = Json::json_pointer(pointer); !place.empty(); place.pop_back()) {
                Json document = whole;
                document[place] = value;
                const desired::Checked checked = check(document);
                EXPECT_TRUE(checked.ok() || !checked.problems[0].pointer.empty()) << place << value;
            }
        }
    };
    const Json whole = sample_configuration();
    for (const Json &value : values) {
        expect_answer(whole, value,
                      [&](const Json &in) { return desired::check_configuration(in, whole); });
        expect_answer(whole, value,
                      [&](const Json &in) { return desired::check_overrides(in, whole); });
        expect_answer(test::sample_site(), value, desired::check_site);
    }
}

TEST(Documents, SlotsAreCountedForEachBand) {
    Json configuration = sample_configuration();
    configuration["ssids"] = Json::array();
    for (const char *name : {"a", "b", "c", "d", "e"}) {
        configuration["ssids"].push_back(wpa2(name));
    }
    EXPECT_EQ(pointers(desired::check_configuration(configuration)), "/ssids/4/bands");
    configuration["ssids"][4]["bands"] = {"2.4"};
    const auto checked = desired::check_configuration(configuration);
    ASSERT_TRUE(checked.ok());
    EXPECT_EQ(desired::slots_of(checked.document, desired::bands[0]).at(0)->at("name"), "e");
    EXPECT_EQ(desired::slots_of(checked.document, desired::bands[1]).at(3)->at("name"), "d");
}

TEST(Documents, PassPhrasesAreWrittenAndNeverRead) {
    const Json before = desired::check_configuration(sample_configuration()).document;
    const Json shown = desired::without_passphrases(before);
    EXPECT_EQ(shown.dump().find("welcome"), std::string::npos);
    EXPECT_EQ(shown["ssids"][0]["passphrase_set"], true);
    EXPECT_EQ(shown["ssids"][1]["passphrase_set"], false);
    // What was read can be put back.
    EXPECT_EQ(desired::check_configuration(shown, before).document, before);
    EXPECT_EQ(pointers(desired::check_configuration(shown)), "/ssids/0/passphrase");
    // An SSID of another name has none, and one that becomes open loses it.
    EXPECT_EQ(
        pointers(desired::check_configuration(changed(shown, "/ssids/0/name", "New"), before)),
        "/ssids/0/passphrase");
    const auto open =
        desired::check_configuration(changed(shown, "/ssids/0/security", "open"), before);
    EXPECT_TRUE(open.ok());
    EXPECT_TRUE(open.document["ssids"][0]["passphrase"].is_null());
    // No problem repeats a value.
    const auto wrong = desired::check_configuration(
        changed(sample_configuration(), "/ssids/0/passphrase", "secret\x01text"));
    EXPECT_EQ(wrong.problems.at(0).detail.find("secret"), std::string::npos);
}

TEST(Documents, OverridesChangeWhatTheyName) {
    const Json site = desired::check_configuration(sample_configuration()).document;
    const auto part = [](const char *text, const Json &before = nullptr) {
        const auto checked = desired::check_overrides(Json::parse(text), before);
        EXPECT_EQ(pointers(checked), "") << text;
        return checked.document;
    };
    struct Row {
        const char *overrides;
        const char *pointer; /**< in the merged document */
        const char *value;
    };
    for (const Row &row : {
             Row{R"({"radios": {"5": {"channel": 44}}})", "/radios/5/channel", "44"},
             Row{R"({"radios": {"5": {"channel": 44}}})", "/radios/5/power_dbm", "20"},
             Row{R"({"ssids": [{"name": "Staff", "vlan": null}]})", "/ssids/0/vlan", "null"},
             Row{R"({"ssids": [{"name": "Staff", "vlan": null}]})", "/ssids/0/passphrase",
                 R"("welcome-2024")"},
             Row{R"({"ssids": [{"name": "Staff", "security": "open"}]})", "/ssids/0/passphrase",
                 "null"},
             Row{R"({"ssids": [{"name": "Lab", "bands": ["5"], "security": "open"}]})",
                 "/ssids/2/max_clients", "0"},
             Row{R"({"reboot": null})", "/reboot", "null"},
             Row{R"({})", "/reboot/at", R"("04:30")"},
         }) {
        const auto merged = desired::merge(site, part(row.overrides));
        EXPECT_EQ(pointers(merged), "") << row.overrides;
        EXPECT_EQ(merged.document.at(Json::json_pointer(row.pointer)), Json::parse(row.value))
            << row.overrides << " " << row.pointer;
    }
    EXPECT_EQ(desired::merge(site, nullptr).document, site);
    EXPECT_EQ(pointers(desired::merge(site, part(R"({"ssids": [{"name": "Lab"}]})"))),
              "/ssids/2/bands /ssids/2/security");
    EXPECT_EQ(pointers(desired::check_overrides(Json::parse(R"({"ssids": [{"vlan": 5}]})"))),
              "/ssids/0/name");

    const Json before = part(R"({"ssids": [{"name": "Staff", "passphrase": "only-here-1"}]})");
    const Json shown = desired::without_passphrases(before);
    EXPECT_EQ(part(shown.dump().c_str(), before), before);
    EXPECT_EQ(part(R"({"ssids": [{"name": "Staff", "passphrase_set": false}]})", before).dump(),
              R"({"ssids":[{"name":"Staff"}]})");
}

}  // namespace

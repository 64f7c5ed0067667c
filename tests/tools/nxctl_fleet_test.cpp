/**
 * nxctl devices, watch and forget: what the broker knows, and what comes.
 */
#include <regex>
#include <sstream>

#include "tests/tools/nxctl_tool.h"
#include "tools/nxctl_json.h"

namespace {

using nxctl::Json;
using test::LiveDevice;
using test::Outcome;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/** The words of each line. */
std::vector<std::vector<std::string>> words_of(const std::string &text) {
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        rows.emplace_back(std::istream_iterator<std::string>(words),
                          std::istream_iterator<std::string>());
    }
    return rows;
}

class NxctlFleet : public test::NxctlTool {
  protected:
    using NxctlTool::NxctlTool;

    void identify(const std::string &serial, const std::string &identity,
                  const std::string &status = R"({"online":true})") {
        retain("norvex/v1/" + serial + "/up/identity", identity);
        retain("norvex/v1/" + serial + "/status", status);
    }

    /** The first words of a run's lines, but for the heading. */
    std::vector<std::string> serials(const std::string &arguments) {
        std::vector<std::string> found;
        for (const auto &row : words_of(run("devices " + arguments).out)) {
            found.push_back(row.front());
        }
        found.erase(found.begin());
        return found;
    }
};

TEST_F(NxctlFleet, ListsDevices) {
    using List = std::vector<std::string>;
    { const LiveDevice gone(broker, "SN1"); }
    const LiveDevice here(broker, "SN2");
    identify("TN3", R"({"model":"ZX-A6","firmware_version":"V2","mac":"02AB"})",
             R"({"online":true,"connection":7,"since":1790000000.25})");
    const Outcome run = this->run("devices");
    EXPECT_EQ(run.exit, 0);
    const std::regex moment(R"(20\d\d-\d\d-\d\dT\d\d:\d\dZ)");
    const std::string rows = std::regex_replace(run.out, moment, "THEN");
    EXPECT_EQ(words_of(rows), (std::vector<List>{
                                  {"SERIAL", "STATE", "MODEL", "FIRMWARE", "MAC", "CONNECTED"},
                                  {"SN1", "offline", "ZX-A5", "THEN"},
                                  {"SN2", "online", "ZX-A5", "THEN"},
                                  {"TN3", "online", "ZX-A6", "V2", "02AB", "THEN"},
                              }));
    const std::pair<const char *, List> filters[] = {
        {"--online", {"SN2", "TN3"}},       {"--offline", {"SN1"}},
        {"'SN*'", {"SN1", "SN2"}},          {"SN1 '*3'", {"SN1", "TN3"}},
        {"--model '*A5' SN2 TN3", {"SN2"}}, {"--firmware V2", {"TN3"}},
        {"--model '?X-A[67]'", {"TN3"}},    {"SN9", {}},
    };
    for (const auto &[arguments, expected] : filters) {
        EXPECT_EQ(serials(arguments), expected) << arguments;
    }
    EXPECT_EQ(this->run("devices TN3 --json").out,
              R"({"serial":"TN3","state":"online","connected":"2026-09-21T14:13:20.250Z",)"
              R"("identity":{"model":"ZX-A6","firmware_version":"V2","mac":"02AB"}})"
              "\n");
}

// Nothing that a device tells ends the list, adds a row to it or reaches the terminal as
// a command.
TEST_F(NxctlFleet, TrustsNoDevice) {
    identify("SN1", R"({"model":5,"firmware_version":null,"mac":["x"]})");
    identify("SN2", "{\"model\":\"A\\u001b[2J\\r\\nSN9  online\\u0000\",\"mac\":\"a\u202eb\"}");
    identify("SN3", "\xff{", "online");
    identify("SN4", std::string(200000, '['), R"({"online":"yes"})");
    identify("SN5", "{\"model\":\"" + std::string(300, 'x') + "\"}",
             R"({"online":false,"since":9223372036854775807})");
    const Outcome run = this->run("devices");
    EXPECT_EQ(run.exit, 0);
    const auto rows = words_of(run.out);
    ASSERT_EQ(rows.size(), 6U) << run.out;
    using Row = std::vector<std::string>;
    EXPECT_EQ(rows[1], (Row{"SN1", "online", "?", "?", "?"}));
    EXPECT_EQ(rows[2], (Row{"SN2", "online", "A\\x1b[2J\\x0d...", "a\\u202eb"}));
    EXPECT_EQ(rows[3], (Row{"SN3", "?", "?", "?", "?"}));
    EXPECT_EQ(rows[4], (Row{"SN4", "?", "?", "?", "?"}));
    EXPECT_EQ(rows[5], (Row{"SN5", "offline", "xxxxxxxxxxxxx...", "?"}));

    const Outcome json = this->run("devices --json");
    EXPECT_EQ(json.exit, 0);
    std::istringstream lines(json.out);
    std::string line;
    for (int i = 1; i <= 5; ++i) {
        std::getline(lines, line);
        EXPECT_EQ(Json::parse(line).at("serial"), "SN" + std::to_string(i));
    }
    EXPECT_FALSE(std::getline(lines, line));
    EXPECT_THAT(json.out, HasSubstr(R"("mac":"a\u202eb")")) << "plain ASCII";
}

/** The shipped profile, with less room for messages that wait. */
std::string strict_profile() {
    std::string text = test::text_of(NORVEX_SOURCE_DIR "/config/mosquitto-loopback.conf");
    text = std::regex_replace(text, std::regex("listener 1883"), "listener PORT");
    text =
        std::regex_replace(text, std::regex("max_queued_messages \\d+"), "max_queued_messages 500");
    return std::regex_replace(text, std::regex("set_tcp_nodelay.*"), "");
}

class NxctlLargeFleet : public NxctlFleet {
  protected:
    NxctlLargeFleet() : NxctlFleet(strict_profile()) {}
};

TEST_F(NxctlLargeFleet, IsListedCompletely) {
    constexpr size_t fleet = 10000;
    test::Console console(broker, {}, "norvex/v1/last");
    for (size_t i = 0; i < fleet; ++i) {
        const std::string device = "norvex/v1/SN" + std::to_string(i);
        console.publish(device + "/status", R"({"online":true})", "", "", true);
        console.publish(device + "/up/identity", R"({"model":"ZX-A5"})", "", "", true);
    }
    console.publish("norvex/v1/last", "x");
    ASSERT_TRUE(test::eventually([&] {
        console.loop();
        return !console.received.empty();
    }));
    const auto rows = words_of(run("devices").out);
    EXPECT_EQ(rows.size(), fleet + 1);
    const auto whole = [](const std::vector<std::string> &row) {
        return row.size() == 3 && row[1] == "online" && row[2] == "ZX-A5";
    };
    EXPECT_EQ(static_cast<size_t>(std::ranges::count_if(rows, whole)), fleet);
}

TEST_F(NxctlFleet, WatchesUploadsAndPresence) {
    test::Child watcher = start({"watch", "SN1", "T*"}, "log");
    {
        const LiveDevice other(broker, "SN2");
        const LiveDevice third(broker, "TN3");
        LiveDevice device(broker, "SN1");
        ASSERT_TRUE(appears("log", " SN1 online"));
        device.client().upload("up/alarm", "{\n\t\"type\": 1\n}");
        device.client().upload("up/running_log", "a\x1b\r\n12:00:00 SN2 offline");
        device.client().upload("up/config", "name" + std::string(28, '\0') + "12345");
        ASSERT_TRUE(appears("log", "up/config"));
    }
    ASSERT_TRUE(appears("log", " SN1 offline"));
    ASSERT_TRUE(appears("log", " TN3 offline"));
    EXPECT_TRUE(watcher.is_running());
    const std::string log = test::text_of(path("log"));
    EXPECT_THAT(log, HasSubstr(" SN1 up/alarm\n  {\n  \t\"type\": 1\n  }\n"));
    EXPECT_THAT(log, HasSubstr(" SN1 up/running_log\n  a\\x1b\\x0d\n  12:00:00 SN2 offline\n"));
    EXPECT_THAT(log, HasSubstr(" SN1 up/config\n  \"name\", 5 bytes\n"));
    EXPECT_THAT(log, Not(HasSubstr(" SN2 online")));
}

TEST_F(NxctlFleet, WatchesKindsAsJson) {
    test::Child watcher = start(
        {"watch", "--json", "--kind", "alarm", "--kind", "config", "--kind", "status"}, "log");
    LiveDevice device(broker, "SN1");
    ASSERT_TRUE(appears("log", R"("serial":"SN1","kind":"status")"));
    device.client().upload("up/running_log", "not wanted");
    device.client().upload("up/alarm", R"({"a":[1]})");
    device.client().upload("up/alarm", "{");
    device.client().upload("up/config", "name" + std::string(28, '\0') + "12345");
    ASSERT_TRUE(appears("log", R"("kind":"config")"));
    std::istringstream lines(test::text_of(path("log")));
    std::vector<Json> data;
    for (std::string line; std::getline(lines, line);) {
        const Json entry = Json::parse(line);
        EXPECT_TRUE(std::regex_match(entry.at("time").get<std::string>(),
                                     std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)")));
        EXPECT_EQ(entry.at("serial"), "SN1");
        EXPECT_TRUE(entry.at("kind") == "status" || !entry.at("earlier"));
        data.push_back(entry.at("data"));
    }
    ASSERT_FALSE(data.empty());
    EXPECT_EQ(data.front().at("online"), true);
    data.erase(data.begin());
    EXPECT_EQ(data, (std::vector<Json>{{{"a", {1}}}, "{", {{"name", "name"}, {"bytes", 5}}}));
}

TEST_F(NxctlFleet, GoesOnWatchingBehindALostConnection) {
    test::Child watcher = start({"watch"}, "log");
    LiveDevice device(broker, "SN1");
    ASSERT_TRUE(appears("log", " SN1 online"));
    broker.stop();
    ASSERT_TRUE(appears("log", "; trying again until it works\n"));
    broker.start();
    ASSERT_TRUE(appears("log", "nxctl: connected to 127.0.0.1:"));
    test::eventually([&] { return device.client().is_up(); });
    device.client().upload("up/alarm", "again");
    ASSERT_TRUE(appears("log", "up/alarm\n  again\n"));
}

TEST_F(NxctlFleet, ForgetsDevicesThatAreGone) {
    identify("OLD1", "{}", R"({"online":false})");
    identify("OLD2", "{}", R"({"online":false})");
    retain("norvex/v1/OLD2/up/binding", "{}");
    const LiveDevice here(broker, "OLD3");
    const Outcome run = this->run("forget 'OLD*'");
    EXPECT_EQ(run.exit, 1);
    EXPECT_EQ(run.out, "OLD1\nOLD2\n");
    EXPECT_THAT(run.err, StartsWith("nxctl: not forgotten, for they are online: OLD3 ("));
    EXPECT_EQ(serials(""), std::vector<std::string>{"OLD3"});
    test::Console console(broker, {}, "norvex/v1/OLD2/#");
    for (int i = 0; i < 20; ++i) {
        console.loop();
    }
    EXPECT_TRUE(console.received.empty());
    EXPECT_EQ(this->run("forget OLD1").err, "nxctl: the broker knows no device OLD1\n");
    EXPECT_EQ(this->run("forget OLD3 --force").exit, 0);
    EXPECT_TRUE(serials("").empty());
}

}  // namespace

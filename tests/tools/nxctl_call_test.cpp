/**
 * nxctl call: one device and many, answers, completions, refusals.
 */
#include "tests/tools/nxctl_tool.h"

namespace {

using test::LiveDevice;
using test::Outcome;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class NxctlCall : public test::NxctlTool {};

TEST_F(NxctlCall, PrintsTheResponseAsTheAgentMadeIt) {
    const LiveDevice device(broker, "SN1");
    write("in", R"({"a": 1})");
    for (const std::string &arguments :
         {std::string(R"(call SN1 add_router_to_prj '{"a": 1}')"),
          std::string(R"(call SN1 cloud/0 '{"a": 1}' --timeout 5)"),
          "call SN1 cloud/0 - <" + path("in"), "call SN1 cloud/0 @" + path("in")}) {
        const Outcome run = this->run(arguments);
        EXPECT_EQ(run.exit, 0) << arguments << run.err;
        EXPECT_EQ(run.out, R"(<{"a": 1}>)") << arguments;
        EXPECT_EQ(run.err, "") << arguments;
    }
    EXPECT_EQ(run("call SN1 cloud/0").out, "<>") << "no request at all";
}

TEST_F(NxctlCall, TellsHowAnOrderEnded) {
    { const LiveDevice gone(broker, "SN2"); }
    const LiveDevice device(broker, "SN1");
    test::CloudDevice busy(broker, "SN4");  // its main thread never works
    test::eventually([&] { return busy.client.is_up(); });
    retain("norvex/v1/SN1/rsp/cloud/0", R"({"online":false})");
    retain("norvex/v1/SN5/status", R"({"online":"?"})");
    const struct {
        const char *arguments;
        int exit;
        const char *out, *err;
    } rows[] = {
        {"call SN1 cloud/0 x", 0, "<x>", ""},  // whatever is retained elsewhere
        {"call SN1 cloud/1", 2, "", "nxctl: device SN1 has no answer to cloud/1"},
        {"call SN1 dev/10", 2, "", "nxctl: device SN1 has no command dev/10\n"},
        {"call SN1 del_router_from_prj {", 2, "", "nxctl: device SN1 cannot read the request"},
        {"call SN1 system/serial a/b", 2, "", "nxctl: device SN1 takes this text for no serial"},
        {"call SN2 cloud/0 --timeout 50", 3, "", "nxctl: device SN2 is not connected\n"},
        {"call SN3 cloud/0 --timeout 50", 3, "", "nxctl: device SN3 is not connected\n"},
        {"call SN5 cloud/0 --timeout 50", 3, "", "nxctl: device SN5 is not connected\n"},
        {"call SN4 cloud/0 --timeout 0.2", 3, "", "nxctl: device SN4 did not answer in time\n"},
        {"call SN1 cloud/4", 0, R"({"resp_code":-1})", ""},
        {"call SN1 cloud/4 --check", 4, R"({"resp_code":-1})",
         "nxctl: device SN1 answers that it did not do it: it says so when nothing can be saved\n"},
        {"call SN1 cloud/0 --check", 4, "<>", "nxctl: device SN1 answers"},  // no JSON
        {"call SN1 cloud/3 --check", 0, R"({"resp_code":0})", ""},
    };
    for (const auto &row : rows) {
        const Outcome run = this->run(row.arguments);
        EXPECT_EQ(run.exit, row.exit) << row.arguments;
        EXPECT_EQ(run.out, row.out) << row.arguments;
        EXPECT_THAT(run.err, StartsWith(row.err)) << row.arguments;
        EXPECT_EQ(run.err.empty(), *row.err == '\0') << row.arguments;
    }
}

TEST_F(NxctlCall, AnswersOfOthersAreNotTaken) {
    const LiveDevice device(broker, "SN1");
    std::atomic<bool> ends{false};
    std::thread others([&] {
        test::Console other(broker, {}, "norvex/v1/SN1/rsp/cloud/0");
        while (!ends) {
            const size_t seen = other.received.size();
            other.publish("norvex/v1/SN1/cmd/cloud/0", "other", "norvex/v1/SN1/rsp/cloud/0",
                          "other");
            other.publish("norvex/v1/SN1/cmd/cloud/0", "other");
            while (!ends && other.received.size() < seen + 2) {
                other.loop();
            }
        }
    });
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(run("call SN1 cloud/0 mine").out, "<mine>");
    }
    ends = true;
    others.join();
}

TEST_F(NxctlCall, CallsManyDevices) {
    { const LiveDevice gone(broker, "SX1"); }
    const LiveDevice one(broker, "SN1");
    const LiveDevice two(broker, "SN2");
    const LiveDevice three(broker, "TN3");
    write("list", "SN2\r\n\nSN9\nTN?\n");
    const struct {
        std::string arguments;
        int exit;
        std::vector<std::string> answered;
        std::string err;
    } rows[] = {
        {"call 'SN*' cloud/0 x", 0, {"SN1", "SN2"}, "2 devices: 2 answered\n"},
        {"call SN2,TN3,SN2 cloud/0 x --parallel 1", 0, {"SN2", "TN3"}, "2 devices: 2 answered\n"},
        {"call --all cloud/0 x --online", 0, {"SN1", "SN2", "TN3"}, "3 devices: 3 answered\n"},
        {"call --all cloud/0 x",
         3,
         {"SN1", "SN2", "TN3"},
         "nxctl: device SX1 is not connected\n"
         "nxctl: 4 devices: 3 answered, 1 did not answer\n"},
        {"call - cloud/0 x <" + path("list"),
         3,
         {"SN2", "TN3"},
         "nxctl: device SN9 is not connected\n"
         "nxctl: 3 devices: 2 answered, 1 did not answer\n"},
        {"call '[ST]N*' cloud/0 x --model ZX-B*", 3, {}, "nxctl: no device is meant"},
    };
    for (const auto &row : rows) {
        const Outcome run = this->run(row.arguments);
        EXPECT_EQ(run.exit, row.exit) << row.arguments;
        EXPECT_THAT(run.err, StartsWith(row.err)) << row.arguments;
        size_t bytes = 0;
        for (const std::string &serial : row.answered) {
            const std::string part = serial + "\n  <x>\n";
            EXPECT_THAT(run.out, HasSubstr(part)) << row.arguments;
            bytes += part.size();
        }
        EXPECT_EQ(run.out.size(), bytes) << row.arguments;
    }
    const Outcome json = run("call SN1,SX1 cloud/3 --json");
    EXPECT_EQ(json.exit, 3);
    EXPECT_THAT(json.out, HasSubstr(R"({"serial":"SN1","exit":0,"outcome":"answered",)"
                                    R"("response":{"resp_code":0}})"
                                    "\n"));
    EXPECT_THAT(json.out, HasSubstr(R"("failure":"device SX1 is not connected"})"));
    const Outcome worst = run("call SN1,SX1 cloud/4 --check");
    EXPECT_EQ(worst.exit, 4) << "the highest of 4 and 3";
}

TEST_F(NxctlCall, FollowsAnOrderToItsUpload) {
    LiveDevice device(broker, "SN1");
    retain("norvex/v1/SN1/up/net_check", "an old one");
    test::Child follower = start({"call", "SN1", "net_check", "--follow"}, "log");
    ASSERT_TRUE(appears("log", "{\"resp_code\":0}\n"));
    device.client().upload("up/alarm", "another kind");
    device.client().upload("up/net_check", "[]");
    EXPECT_TRUE(appears("log", "{\"resp_code\":0}\n[]\n"));
    EXPECT_TRUE(test::eventually([&] { return !follower.is_running(); }));
    EXPECT_EQ(WEXITSTATUS(follower.end(SIGKILL)), 0);

    const Outcome late = run("call SN1 net_check --follow --follow-timeout 0.2");
    EXPECT_EQ(late.exit, 3);
    EXPECT_EQ(late.out, "{\"resp_code\":0}\n");
    EXPECT_EQ(late.err, "nxctl: device SN1 answered, but its upload did not come in time\n");
}

// What tells of a restart is the identity behind the answer, not one before it.
TEST_F(NxctlCall, FollowsARestartToTheNextIdentity) {
    LiveDevice device(broker, "SN1");
    test::Child follower = start({"call", "SN1", "reboot_download", "--follow"}, "log");
    ASSERT_TRUE(appears("log", "{\"resp_code\":0}\n"));
    device.client().upload("up/identity", "late");
    ASSERT_TRUE(appears("log", "late\n"));
    EXPECT_EQ(test::text_of(path("log")), "{\"resp_code\":0}\nlate\n");
}

// What comes before the command was sent belongs to another order.
TEST_F(NxctlCall, FollowsNoUploadOfBefore) {
    { const LiveDevice gone(broker, "SN1"); }
    test::Child follower = start({"call", "SN1", "net_check", "--follow", "--wait"}, "log");
    test::Console console(broker, {}, "norvex/v1/SN1/up/net_check");
    const auto limit = test::Clock::now() + std::chrono::milliseconds(300);
    size_t sent = 0;
    while (test::Clock::now() < limit) {  // it listens for a part of this time
        console.publish("norvex/v1/SN1/up/net_check", "[0]");
        console.loop();
        ++sent;
    }
    test::eventually([&] {  // the broker has them all before the device comes
        console.loop();
        return console.received.size() == sent;
    });
    LiveDevice device(broker, "SN1");
    ASSERT_TRUE(appears("log", "{\"resp_code\":0}\n"));
    device.client().upload("up/net_check", "[1]");
    ASSERT_TRUE(appears("log", "]\n"));
    EXPECT_EQ(test::text_of(path("log")), "{\"resp_code\":0}\n[1]\n");
}

TEST_F(NxctlCall, AsksABoundedNumberAtOnce) {
    test::CloudDevice one(broker, "SN1");  // whose main threads never work
    test::CloudDevice two(broker, "SN2");
    test::eventually([&] { return one.client.is_up() && two.client.is_up(); });
    test::Console console(broker, {}, "norvex/v1/+/cmd/#");
    test::Child caller = start({"call", "SN1,SN2", "cloud/0", "--parallel", "1"}, "log");
    ASSERT_TRUE(test::eventually([&] {
        console.loop();
        return !console.received.empty();
    }));
    for (int i = 0; i < 100; ++i) {
        console.loop();
    }
    EXPECT_EQ(console.received.size(), 1U);
}

TEST_F(NxctlCall, WaitsForADeviceThatIsAway) {
    { const LiveDevice gone(broker, "SN1"); }
    for (const char *serial : {"SN1", "SN2"}) {  // one that left, and one that never came
        test::Child waiting =
            start({"call", serial, "cloud/0", "x", "--wait", "--timeout", "60"}, serial);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        EXPECT_TRUE(waiting.is_running());
        const LiveDevice back(broker, serial);
        EXPECT_TRUE(appears(serial, "<x>"));
    }
    EXPECT_EQ(run("call SN1 cloud/0 --wait --timeout 0.2").err,
              "nxctl: device SN1 is not connected\n");
}

// A device that restarts is still there when it is asked: it gets the command once more.
TEST_F(NxctlCall, AsksAgainAfterARestart) {
    auto busy = std::make_unique<test::CloudDevice>(broker, "SN1");
    test::eventually([&] { return busy->client.is_up(); });
    test::Console console(broker, {}, "norvex/v1/SN1/cmd/#");
    test::Child waiting =
        start({"call", "SN1", "cloud/0", "x", "--wait", "--timeout", "60"}, "log");
    EXPECT_TRUE(test::eventually([&] {
        console.loop();
        return !console.received.empty();
    }));
    busy.reset();
    const LiveDevice back(broker, "SN1");
    EXPECT_TRUE(appears("log", "<x>"));
}

TEST_F(NxctlCall, LooksAtARequestBeforeItIsSent) {
    const std::string deep = "@" + write("deep", std::string(100000, '['));
    const std::pair<std::string, const char *> rows[] = {
        {"wlan_config_set {", "the request is no JSON"},
        {"wlan_config_set " + deep, "the request is no JSON"},
        {"wlan_config_set []", "the request is no object"},
        {R"(wlan_config_set '{"radio1":[{"ssidenable":1},{"ssid":"x"}]}')",
         "radio1[1].ssidenable is missing"},
        {R"(wlan_config_set '{"radio1":[{"status":1,"SSIDENABLE":1}]}')",
         "there is no member radio1[0].status"},
        {R"(wlan_config_set '{"radio1":[{"ssidenable":1,"vlan":20}]}')",
         "radio1[0].vlan is no text"},
        {R"(wlan_config_set '{"radio1":{}}')", "radio1 is no array"},
        {R"(wlan_config_set '{"radio2":[{"ssidenable":1,"encrypt":5}]}')",
         "radio2[0].encrypt is none of 0 open, 1 WPA-PSK"},
        {R"(wlan_config_set '{"radio2":[{"ssidenable":1,"ssididx":8}]}')",
         "radio2[0].ssididx is not between 0 and 7"},
        {R"(add_router_to_prj '{"project_id":2147483648}')",
         "project_id is not between -2147483648 and 2147483647"},
        {R"(add_router_to_prj '{"project_id":18446744073709551615}')", "project_id is not between"},
        {R"(add_router_to_prj '{"project_id":7.5}')", "project_id is no whole number"},
        {"add_router_to_prj '{\"cloud_id\":\"" + std::string(1024, 'x') + "\"}'",
         "cloud_id has more than 1023 bytes"},
        {R"(force_off '[{"mac":"02:57:00:00:00:0a"}]')", "[0].mac has another form"},
        {R"(auto_maint '{"mainetmode":1,"schedule_reboot":{}}')",
         "schedule_reboot.repeat_day is missing"},
        {"radio_opt_set", "rf_optimize is missing"},
        {R"(status_upload '{"x":1}')", "there is no member x"},
        {"config_sync", "the request is missing"},
    };
    for (const auto &[arguments, sentence] : rows) {
        const Outcome run = this->run("call SN1 --check " + arguments);
        EXPECT_EQ(run.exit, 64) << arguments;
        EXPECT_THAT(run.err, AllOf(StartsWith(std::string("nxctl: ") + sentence),
                                   HasSubstr("; nothing was sent")))
            << arguments;
    }
    const LiveDevice device(broker, "SN1");
    for (const char *fitting : {R"('{"CLOUD_ID":"x","project_id":-2147483648}')", "{}", "''"}) {
        EXPECT_THAT(run(std::string("call SN1 --check cloud/0 ") + fitting).out, StartsWith("<"));
    }
}

}  // namespace

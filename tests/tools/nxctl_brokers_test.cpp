/**
 * nxctl over several brokers: where a device is, what an old word of one is worth, and
 * brokers that are not there.
 */
#include <future>

#include "tests/tools/nxctl_tool.h"
#include "tools/nxctl_json.h"

namespace {

using nxctl::Json;
using test::LiveDevice;
using test::Outcome;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/** Two brokers; the tool's own is the first. */
class NxctlBrokers : public test::NxctlTool {
  protected:
    std::string both() const { return broker.url() + "," + second.url(); }

    Outcome ask(const std::string &arguments) {
        return run("--broker " + both() + " " + arguments);
    }

    /** Starts the tool for both. */
    test::Child begin(std::vector<std::string> arguments, const std::string &file) {
        arguments.insert(arguments.begin(), {NORVEX_RUN_DIR "/nxctl", "--broker", both()});
        return test::Child(arguments, path(file));
    }

    static std::string address(const test::Broker &one) { return one.url().substr(7); }

    static std::string presence(bool online, double since, unsigned connection = 1) {
        return nxapi::topics::presence(online, connection, since);
    }

    void claim(const test::Broker &at, const std::string &serial, const std::string &status) {
        retain(at, "norvex/v1/" + serial + "/status", status);
    }

    /** A device that knows both. */
    nxapi::Settings settings() const {
        nxapi::Settings settings = test::settings_for(broker);
        settings.brokers.push_back({"127.0.0.1", second.port(), false});
        return settings;
    }

    /** The broker that has a device, and the other. */
    std::pair<test::Broker *, test::Broker *> places(const std::string &serial) {
        const Outcome row = ask("devices --json " + serial);
        const bool first = Json::parse(row.out).at("broker") == address(broker);
        return first ? std::pair(&broker, &second) : std::pair(&second, &broker);
    }

    test::Broker second;
};

TEST_F(NxctlBrokers, TheNewestConnectionTellsOfADevice) {
    claim(broker, "SN1", presence(true, 10.5));
    claim(second, "SN1", presence(false, 10.6));
    claim(broker, "SN2", presence(true, 10, 3));
    claim(second, "SN2", presence(false, 10, 2));
    retain(broker, "norvex/v1/SN2/up/identity", R"({"model":"new"})");
    retain(second, "norvex/v1/SN2/up/identity", R"({"model":"old"})");
    claim(broker, "SN3", R"({"online":true})");
    claim(second, "SN3", presence(false, 5));
    claim(second, "SN4", R"({"online":true})");
    const Outcome run = ask("devices --json");
    EXPECT_EQ(run.err, "");
    const auto line = [&](const char *serial, const char *state, const test::Broker &at) {
        return R"("serial":")" + std::string(serial) + R"(","state":")" + state +
               R"(",.*"broker":")" + address(at) + "\"";
    };
    EXPECT_THAT(run.out, ::testing::ContainsRegex(line("SN1", "offline", second)));
    EXPECT_THAT(run.out, ::testing::ContainsRegex(line("SN2", "online", broker) + ".*new"));
    EXPECT_THAT(run.out, ::testing::ContainsRegex(line("SN3", "offline", second)));
    EXPECT_THAT(run.out,
                HasSubstr(R"("serial":"SN4","state":"online","broker":")" + address(second)));
    EXPECT_THAT(ask("devices SN4").out, EndsWith("  " + address(second) + "\n"));
}

TEST_F(NxctlBrokers, ACommandGoesWhereTheDeviceIs) {
    const LiveDevice device(second, "SN1");
    claim(broker, "SN2", presence(true, 20));
    claim(second, "SN2", presence(true, 10));
    for (const double since : {1.0, 9e9}) {  // an old word of the other broker, and a wrong one
        claim(broker, "SN1", presence(true, since));
        const Outcome run = ask("call SN1 cloud/0 x");
        EXPECT_EQ(run.out, "<x>") << run.err;
        EXPECT_EQ(run.exit, 0);
    }
    const Outcome gone = ask("call SN1,SN2 cloud/3");
    EXPECT_EQ(gone.exit, 3);
    EXPECT_EQ(gone.err,
              "nxctl: device SN2 is not connected\n"
              "nxctl: 2 devices: 1 answered, 1 did not answer\n");
}

// A listener on the broker that the device has left would take the command there for heard.
TEST_F(NxctlBrokers, ACommandGoesToOneBroker) {
    claim(broker, "SN1", presence(true, 1));
    const LiveDevice device(second, "SN1");
    test::Console other(broker, {}, "norvex/v1/+/cmd/#");
    EXPECT_EQ(ask("call SN1 cloud/0 x").out, "<x>");
    other.publish("norvex/v1/SN1/cmd/end/1", "");
    test::eventually([&] {
        other.loop();
        return !other.received.empty();
    });
    EXPECT_EQ(other.received.front().topic, "norvex/v1/SN1/cmd/end/1");
}

TEST_F(NxctlBrokers, BrokersThatAreAwayAreToldAndLeftOut) {
    const LiveDevice device(second, "SN1");
    broker.signal(SIGSTOP);
    const auto began = test::Clock::now();
    const Outcome run = this->run("call SN1 cloud/0 x --broker " + both() + ",mqtt://127.0.0.1:1");
    EXPECT_LT(test::Clock::now() - began, std::chrono::seconds(9));
    broker.signal(SIGCONT);
    EXPECT_EQ(run.exit, 0);
    EXPECT_EQ(run.out, "<x>");
    EXPECT_EQ(run.err, "nxctl: " + address(broker) +
                           " does not answer like a broker\n"
                           "nxctl: cannot connect to 127.0.0.1:1 (Connection refused)\n");
    const Outcome none = this->run("--broker mqtt://127.0.0.1:1,mqtt://127.0.0.1:2 devices");
    EXPECT_EQ(none.exit, 1);
    EXPECT_EQ(none.err,
              "nxctl: cannot connect to 127.0.0.1:1 (Connection refused)\n"
              "nxctl: cannot connect to 127.0.0.1:2 (Connection refused)\n");
}

std::atomic<int> slow_runs{0};
std::atomic<bool> slow_may_end{false};

/** Echoes when it may. */
int slow_command(void *self, int in_len, const char *in, char **out, int *out_len, void *data) {
    ++slow_runs;
    test::eventually([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return slow_may_end.load();
    });
    return test::echo_command(self, in_len, in, out, out_len, data);
}

// The answer comes by the broker that the device has moved to; the command runs once.
TEST_F(NxctlBrokers, AnOrderOutlivesItsBroker) {
    slow_runs = 0;
    slow_may_end = false;
    LiveDevice device(settings(), "SN1", slow_command);
    const auto [here, there] = places("SN1");
    auto order =
        std::async(std::launch::async, [&] { return ask("call SN1 cloud/0 x --timeout 30"); });
    ASSERT_TRUE(test::eventually([] { return slow_runs > 0; }));
    here->stop(SIGKILL);
    slow_may_end = true;
    const Outcome run = order.get();
    EXPECT_EQ(run.out, "<x>");
    EXPECT_EQ(run.exit, 0);
    EXPECT_THAT(run.err, StartsWith("nxctl: lost the connection to " + address(*here)));
    EXPECT_EQ(slow_runs, 1);
    const Outcome next = ask("call SN1 cloud/3");
    EXPECT_EQ(next.exit, 0) << next.err;
    EXPECT_EQ(next.err, "nxctl: cannot connect to " + address(*here) + " (Connection refused)\n");
}

// A device that moves before it answers gets the command once more with --wait alone.
TEST_F(NxctlBrokers, ADeviceThatMovedIsAskedAgainOnDemand) {
    test::CloudDevice busy(broker, "SN1");  // its main thread never works
    test::eventually([&] { return busy.client.is_up(); });
    test::Console asked(broker, {}, "norvex/v1/SN1/cmd/#");
    const auto call = [&](std::vector<std::string> more, const std::string &file) {
        const size_t before = asked.received.size();
        more.insert(more.begin(), {"call", "SN1", "cloud/0", "x"});
        std::unique_ptr<test::Child> child(new test::Child(begin(more, file)));
        test::eventually([&] {
            asked.loop();
            return asked.received.size() > before;
        });
        return child;
    };
    const auto patient = call({"--wait", "--timeout", "60"}, "patient");
    const auto plain = call({"--timeout", "3"}, "plain");
    test::Console again(second, {}, "norvex/v1/SN1/cmd/#");
    const LiveDevice moved(second, "SN1");
    EXPECT_TRUE(appears("patient", "<x>"));
    EXPECT_TRUE(appears("plain", "nxctl: device SN1 did not answer in time\n"));
    for (int i = 0; i < 20; ++i) {
        again.loop();
    }
    EXPECT_EQ(again.received.size(), 1U);
}

TEST_F(NxctlBrokers, WatchesEachAndBelievesTheNewest) {
    claim(broker, "SN1", presence(true, 1));
    retain(broker, "norvex/v1/SN1/up/identity", "of before");
    claim(second, "SN1", presence(false, 2));
    test::Child watcher = begin({"watch"}, "log");
    ASSERT_TRUE(appears("log", " SN1 offline (earlier)\n"));
    broker.stop(SIGKILL);
    ASSERT_TRUE(appears("log", "; trying again until it works\n"));
    LiveDevice device(second, "SN1");
    device.client().upload("up/alarm", "meanwhile");
    ASSERT_TRUE(appears("log", "up/alarm\n  meanwhile\n"));
    broker.start();
    claim(broker, "SN1", presence(true, 3));
    claim(broker, "SN9", presence(true, 3));
    ASSERT_TRUE(appears("log", "nxctl: connected to " + address(broker) + "\n"));
    ASSERT_TRUE(appears("log", " SN9 online"));
    const std::string log = test::text_of(path("log"));
    EXPECT_THAT(log, ::testing::Not(HasSubstr("of before")));
    EXPECT_EQ(log.find(" SN1 online"), log.rfind(" SN1 online")) << log;
}

TEST_F(NxctlBrokers, ForgetsOnAll) {
    for (const test::Broker *one : {&broker, &second}) {
        claim(*one, "OLD1", presence(false, 1));
        retain(*one, "norvex/v1/OLD1/up/identity", "{}");
    }
    const Outcome run = ask("forget OLD1");
    EXPECT_EQ(run.out, "OLD1\n");
    EXPECT_EQ(run.exit, 0) << run.err;
    for (const test::Broker *one : {&broker, &second}) {
        EXPECT_EQ(this->run("forget OLD1 --broker " + one->url()).err,
                  "nxctl: the broker knows no device OLD1\n");
    }
}

}  // namespace

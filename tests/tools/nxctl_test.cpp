/**
 * nxctl against a real broker and a device in the test's process.
 */
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <thread>

#include "tests/nxapi/cloud_device.h"
#include "tools/nxctl_commands.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

/** How a run of the tool ended. */
struct Outcome {
    int exit = -1;
    std::string out;
    std::string err;
};

std::string text_of(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/** A device whose main thread is one of the test's. */
class LiveDevice {
  public:
    LiveDevice(const test::Broker &broker, const std::string &serial) : device_(broker, serial) {
        device_.serve(0, test::echo_command);
        device_.serve(1, test::refusing_command);
        thread_ = std::thread([this] {
            while (!ends_) {
                device_.work(20);
            }
        });
        test::eventually([&] { return device_.client.is_up(); });
    }
    ~LiveDevice() {
        ends_ = true;
        thread_.join();
    }
    nxapi::Client &client() { return device_.client; }

  private:
    test::CloudDevice device_;
    std::atomic<bool> ends_{false};
    std::thread thread_;
};

class Nxctl : public ::testing::Test {
  protected:
    /** Runs the tool through a shell, for at most 20 seconds. */
    Outcome run(const std::string &arguments) {
        const std::string line = "NXCTL_BROKER=" + broker.url() +
                                 " timeout 20 " NORVEX_RUN_DIR "/nxctl " + arguments + " >" +
                                 path("out") + " 2>" + path("err");
        const int status = std::system(line.c_str());
        return {WEXITSTATUS(status), text_of(path("out")), text_of(path("err"))};
    }

    std::string path(const std::string &name) const { return (folder.path() / name).string(); }

    test::Broker broker;
    test::TempFolder folder;
};

TEST_F(Nxctl, PrintsTheResponseAsTheAgentMadeIt) {
    const LiveDevice device(broker, "SN1");
    std::ofstream(path("in")) << R"({"a": 1})";
    for (const std::string &arguments : {std::string(R"(call SN1 add_router_to_prj '{"a": 1}')"),
                                         std::string(R"(call SN1 cloud/0 '{"a": 1}' --timeout 5)"),
                                         "call SN1 cloud/0 - <" + path("in")}) {
        const Outcome run = this->run(arguments);
        EXPECT_EQ(run.exit, 0) << arguments << run.err;
        EXPECT_EQ(run.out, R"(<{"a": 1}>)") << arguments;
        EXPECT_EQ(run.err, "") << arguments;
    }
    EXPECT_EQ(run("call SN1 cloud/0").out, "<>") << "no request at all";
}

TEST_F(Nxctl, TellsARefusalFromSilence) {
    {
        const LiveDevice device(broker, "SN1");
        const Outcome refused = run("call SN1 del_router_from_prj");
        EXPECT_EQ(refused.exit, 2);
        EXPECT_EQ(refused.out, "");
        EXPECT_EQ(refused.err, "nxctl: device SN1 refuses del_router_from_prj\n");
    }
    for (const char *who : {"SN1", "SN2"}) {  // one that left, and one that never came
        const auto start = test::Clock::now();
        const Outcome away = run(std::string("call ") + who + " cloud/0 --timeout 15");
        EXPECT_EQ(away.exit, 3);
        EXPECT_EQ(away.err, std::string("nxctl: device ") + who + " is not connected\n");
        EXPECT_LT(test::Clock::now() - start, std::chrono::seconds(10)) << "not a hang";
    }
    test::CloudDevice busy(broker, "SN3");  // its main thread never works
    test::eventually([&] { return busy.client.is_up(); });
    const Outcome silent = run("call SN3 cloud/0 --timeout 0.2");
    EXPECT_EQ(silent.exit, 3);
    EXPECT_EQ(silent.err, "nxctl: device SN3 did not answer in time\n");
}

TEST_F(Nxctl, AnswersOfOthersAreNotTaken) {
    const LiveDevice device(broker, "SN1");
    test::Console other(broker);
    for (int i = 0; i < 50; ++i) {
        other.publish("norvex/v1/SN1/cmd/cloud/0", "other", "norvex/v1/SN1/rsp/cloud/0", "other");
        other.publish("norvex/v1/SN1/cmd/cloud/0", "other");
    }
    other.loop();
    EXPECT_EQ(run("call SN1 cloud/0 mine").out, "<mine>");
}

TEST_F(Nxctl, ListsDevices) {
    { const LiveDevice gone(broker, "SN1"); }
    const LiveDevice here(broker, "SN2");
    const Outcome run = this->run("devices");
    EXPECT_EQ(run.exit, 0);
    std::istringstream text(run.out);
    const std::vector<std::string> words(std::istream_iterator<std::string>(text), {});
    EXPECT_EQ(words, (std::vector<std::string>{"SERIAL", "STATE", "MODEL", "FIRMWARE", "MAC", "SN1",
                                               "offline", "ZX-A5", "SN2", "online", "ZX-A5"}));
}

TEST_F(Nxctl, WatchesUploadsAndPresence) {
    test::Child watcher({NORVEX_RUN_DIR "/nxctl", "--broker", broker.url(), "watch", "SN1"},
                        path("log"));
    {
        const LiveDevice other(broker, "SN2");
        LiveDevice device(broker, "SN1");
        test::eventually([&] {
            device.client().upload("up/alarm", "{\n\t\"type\": 1\n}");
            device.client().upload("up/config", "name" + std::string(28, '\0') + "12345");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return text_of(path("log")).find("up/config") != std::string::npos;
        });
    }
    test::eventually([&] { return text_of(path("log")).find("offline") != std::string::npos; });
    EXPECT_TRUE(watcher.is_running());
    const std::string log = text_of(path("log"));
    EXPECT_THAT(log, HasSubstr("SN1 online"));
    EXPECT_THAT(log, HasSubstr("SN1 up/alarm\n  {\n  \t\"type\": 1\n  }\n"));
    EXPECT_THAT(log, HasSubstr("SN1 up/config\n  \"name\", 5 bytes\n"));
    EXPECT_EQ(log.find("SN2"), std::string::npos);
}

TEST_F(Nxctl, RefusesBadInputWithASentence) {
    const std::pair<const char *, const char *> rows[] = {
        {"call SN1 no_such_command", "nxctl: there is no command \"no_such_command\""},
        {"call SN1 cloud/5", "nxctl: \"cloud/5\" is no slot of a family"},
        {"call SN1 cloud/1x", "nxctl: \"cloud/1x\" is no slot of a family"},
        {"call SN1 clouds/1", "nxctl: \"clouds/1\" is no slot of a family"},
        {"call + cloud/0", "nxctl: \"+\" is no serial number"},
        {"watch a/b", "nxctl: \"a/b\" is no serial number"},
        {"--broker mqtt://127.0.0.1:1 devices", "nxctl: cannot connect to 127.0.0.1:1"},
        {"--broker nonsense devices", "nxctl: \"nonsense\" is no broker address"},
        {"--broker mqtts://127.0.0.1:1 devices", "nxctl: a mqtts:// broker needs --ca FILE"},
        {"call SN1", "COMMAND is required"},
        {"call SN1 cloud/0 --timeout 0", "--timeout: Value 0 not in range"},
    };
    for (const auto &[arguments, sentence] : rows) {
        const Outcome run = this->run(arguments);
        EXPECT_THAT(run.exit, ::testing::AnyOf(1, ::testing::Gt(100))) << arguments;
        EXPECT_THAT(run.err, StartsWith(sentence)) << arguments;
        EXPECT_EQ(run.out, "") << arguments;
    }
}

TEST_F(Nxctl, ListsTheCommandsOfTheFourFamilies) {
    const Outcome run = this->run("commands");
    EXPECT_EQ(run.exit, 0);
    EXPECT_EQ(static_cast<size_t>(std::ranges::count(run.out, '\n')),
              nxctl::families.size() + nxctl::commands.size());
    EXPECT_THAT(run.out, HasSubstr("  dev/26    dev_config_copy_upload\n"));
}

}  // namespace

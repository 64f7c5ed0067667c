/**
 * The broker profile for the field, as it ships, with the certificates that its script
 * makes.
 */
#include <gmock/gmock.h>

#include <memory>

#include "paths.h"
#include "tests/nxapi/hand_broker.h"

namespace {

using test::CloudDevice;
using test::eventually;

std::string file_text(const std::filesystem::path &path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

void replace(std::string &text, const std::string &from, const std::string &to) {
    for (size_t at = 0; (at = text.find(from, at)) != text.npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

/** A folder of script/certificates. */
class Certificates {
  public:
    explicit Certificates(const std::string &host = "127.0.0.1") { run("--host " + host); }

    void run(const std::string &arguments) const {
        const std::string line = NORVEX_SOURCE_DIR "/script/certificates " +
                                 folder_.path().string() + " " + arguments + " >" + path("log") +
                                 " 2>&1";
        if (std::system(line.c_str()) != 0) {
            throw std::runtime_error(arguments + ": " + file_text(path("log")));
        }
    }

    std::string path(const std::string &file) const { return folder_.path() / file; }

    test::Credentials of(const std::string &client) const {
        return {path("ca.crt"), path(client + ".crt"), path(client + ".key")};
    }

    /** Exchanges the certificates of two brokers. */
    void swap_brokers(const Certificates &other) const {
        for (const char *file : {"broker/broker.crt", "broker/broker.key"}) {
            std::filesystem::rename(path(file), path("other"));
            std::filesystem::rename(other.path(file), path(file));
            std::filesystem::rename(path("other"), other.path(file));
        }
    }

  private:
    test::TempFolder folder_;
};

class Tls : public ::testing::Test {
  protected:
    Tls() { certificates.run("device SN1"); }

    /** The shipped profile, as the script hands it to a broker, with the test's ports:
     *  the broker's own is the consoles'. */
    std::string profile() const {
        std::string text = file_text(certificates.path("broker/mosquitto.conf"));
        text.erase(0, text.find('\n'));  // its user
        replace(text, "listener 8883", "listener " + std::to_string(device_port) + " 127.0.0.1");
        replace(text, "listener 8884", "listener PORT 127.0.0.1");
        return text;
    }

    nxapi::Settings settings(int port, const test::Credentials &files) const {
        nxapi::Settings settings;
        settings.brokers = {{"127.0.0.1", port, true}};
        settings.retry_ms = 20;
        settings.cafile = files.cafile;
        settings.certfile = files.certfile;
        settings.keyfile = files.keyfile;
        return settings;
    }

    nxapi::Settings settings(const std::string &serial) const {
        return settings(device_port, certificates.of("devices/" + serial));
    }

    static size_t logged(const test::Broker &broker, const std::string &words) {
        const std::string log = file_text(broker.folder() / "log");
        size_t count = 0;
        for (size_t at = 0; (at = log.find(words, at)) != log.npos; ++at) {
            ++count;
        }
        return count;
    }

    /** Waits until the broker has logged these words so often. */
    static bool is_logged(const test::Broker &broker, const std::string &words, size_t times) {
        return eventually([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            return logged(broker, words) >= times;
        });
    }

    const int device_port = test::Listener().port();
    const Certificates certificates;
};

TEST_F(Tls, AnotherBrokerIsNotTrustedAndTriedAgain) {
    const Certificates foreign;
    certificates.swap_brokers(foreign);
    test::Broker broker(profile());
    ::testing::internal::CaptureStderr();
    CloudDevice device(settings("SN1"), "SN1");
    EXPECT_TRUE(is_logged(broker, "alert unknown ca", 1)) << "the device's own word on it";
    EXPECT_FALSE(device.client.is_up());
    broker.stop();
    certificates.swap_brokers(foreign);
    broker.start();
    EXPECT_TRUE(eventually([&] { return device.client.is_up(); }));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("certificate verify failed"));
}

TEST_F(Tls, ABrokerOfAnotherHostIsNotTrusted) {
    certificates.run("--host broker.example");
    test::Broker broker(profile());
    ::testing::internal::CaptureStderr();
    {
        CloudDevice device(settings("SN1"), "SN1");
        EXPECT_TRUE(is_logged(broker, "alert internal error", 2)) << "libmosquitto's word on it";
        EXPECT_FALSE(device.client.is_up());
    }
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("host name verification failed"));
}

TEST_F(Tls, AFileThatIsMissingIsNamedAndTriedAgain) {
    test::Broker broker(profile());
    nxapi::Settings late = settings("SN1");
    late.certfile = certificates.path("late.crt");
    ::testing::internal::CaptureStderr();
    CloudDevice device(late, "SN1");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::filesystem::copy_file(certificates.path("devices/SN1.crt"), late.certfile);
    EXPECT_TRUE(eventually([&] { return device.client.is_up(); }));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("cannot read " + late.certfile));
}

TEST_F(Tls, WithoutVerificationAnyBrokerIsTaken) {
    const Certificates foreign("broker.example");
    certificates.swap_brokers(foreign);
    test::Broker broker(profile());
    nxapi::Settings trusting = settings("SN1");
    trusting.tls_verify = false;
    CloudDevice device(trusting, "SN1");
    EXPECT_TRUE(eventually([&] { return device.client.is_up(); }));
}

/** No event tells of the second: with the first it has left the socket already. */
TEST_F(Tls, TwoCommandsInOneRecordAreBothAnswered) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    const std::string end = std::to_string(ends[1]);
    const std::string port = std::to_string(device_port);
    test::Child server({"sh", "-c",
                        "exec openssl s_server -quiet -accept 127.0.0.1:" + port + " -cert " +
                            certificates.path("broker/broker.crt") + " -key " +
                            certificates.path("broker/broker.key") + " <&" + end + " >&" + end},
                       certificates.path("log"));
    close(ends[1]);
    test::HandBroker broker;
    broker.use(ends[0]);
    CloudDevice device(settings("SN1"), "SN1");
    device.serve(0, test::echo_command);
    std::atomic<bool> ends_now{false};
    std::thread main_thread([&] {
        while (!ends_now) {
            device.work(20);
        }
    });
    broker.greet();
    const auto command = [](char text) {
        const std::string topic = "norvex/v1/SN1/cmd/cloud/0";
        return test::HandBroker::packet(
            0x30, std::string{'\0', static_cast<char>(topic.size())} + topic + '\0' + text);
    };
    broker.next(test::HandBroker::subscribe);
    broker.write(command('1') + command('2'));
    for (const char *answer : {"<1>", "<2>"}) {
        EXPECT_THAT(broker.next_on("norvex/v1/SN1/rsp/cloud/0").body, ::testing::EndsWith(answer));
    }
    ends_now = true;
    main_thread.join();
}

TEST_F(Tls, EveryoneKeepsToTheirOwnListener) {
    certificates.run("device SN2");
    certificates.run("console alice");
    const test::Credentials device = certificates.of("devices/SN1");
    const test::Credentials console = certificates.of("consoles/alice");
    const std::string before = file_text(device.certfile) + file_text(certificates.path("ca.crt"));
    for (const char *file : {"SN2.crt", "SN2.key"}) {
        std::filesystem::copy_file(certificates.path("devices/") + file, certificates.path(file));
    }
    certificates.run("revoke SN2");
    certificates.run("device SN1");
    certificates.run("");
    EXPECT_EQ(file_text(device.certfile) + file_text(certificates.path("ca.crt")), before)
        << "the script keeps what is there";
    EXPECT_EQ(std::filesystem::status(device.keyfile).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    test::Broker broker(profile());
    ::testing::internal::CaptureStderr();
    const nxapi::Settings strangers[] = {
        settings(broker.port(), device), settings(device_port, console),
        settings(device_port, certificates.of("SN2")),  // revoked
    };
    for (const nxapi::Settings &stranger : strangers) {
        const size_t known = logged(broker, "certificate verify failed");
        CloudDevice intruder(stranger, "SN1");
        EXPECT_TRUE(is_logged(broker, "certificate verify failed", known + 1));
        EXPECT_FALSE(intruder.client.is_up());
    }
    ::testing::internal::GetCapturedStderr();
}

class Field : public Tls {
  protected:
    Field() {
        certificates.run("console alice");
        broker = std::make_unique<test::Broker>(profile());
        alice = std::make_unique<test::Console>(*broker, certificates.of("consoles/alice"));
    }

    /** Commands the device, and works for all until the answer to the last has come:
     *  what was sent before it has arrived or never will. */
    void settle(CloudDevice &device) {
        const std::string text = std::to_string(++round_);
        eventually([&] {
            alice->publish("norvex/v1/SN1/cmd/cloud/0", text);
            alice->loop();
            device.work();
            return alice->last("norvex/v1/SN1/rsp/cloud/0").payload == "<" + text + ">";
        });
    }

    std::unique_ptr<test::Broker> broker;
    std::unique_ptr<test::Console> alice;

  private:
    int round_ = 0;
};

TEST_F(Field, ADeviceWritesTheTopicsThatStandByName) {
    CloudDevice device(settings("SN1"), "SN1");
    device.serve(0, test::echo_command);
    settle(device);
    std::vector<std::string> allowed = {
        "up/binding", "up/image_path", "up/config",      "up/config_copy", "up/manage",
        "up/alarm",   "up/system_log", "up/running_log", "up/net_check",   "up/radio_optimization",
        "up/upgrade"};
    std::vector<std::string> refused = {"up/other", "other"};
    for (const std::vector<std::string> &list : {allowed, refused}) {
        for (const std::string &kind : list) {
            device.client.upload(kind, "x");
        }
    }
    const auto command = [&](const std::string &target, bool answered) {
        alice->publish("norvex/v1/SN1/cmd/" + target, "");
        (answered ? allowed : refused).push_back("rsp/" + target);
    };
    for (const nxapi::Family &family : nxapi::families) {
        for (size_t slot = 0; slot <= family.slots; ++slot) {
            command(nxapi::topics::slot(family.name, slot), slot < family.slots);
        }
    }
    command("system/serial", true);
    for (const auto &[topic, answered] :
         {std::pair{"rsp/alice/answer", true}, {"rsp/alice/1", false}, {"rsp/bob/answer", false}}) {
        alice->publish("norvex/v1/SN1/cmd/cloud/0", "", std::string("norvex/v1/SN1/") + topic);
        (answered ? allowed : refused).emplace_back(topic);
    }
    ::testing::internal::CaptureStderr();
    settle(device);
    for (const std::string &topic : allowed) {
        EXPECT_FALSE(alice->on("norvex/v1/SN1/" + topic).empty()) << topic;
    }
    for (const std::string &topic : refused) {
        EXPECT_TRUE(alice->on("norvex/v1/SN1/" + topic).empty()) << topic;
    }
    device.client.upload("up/config", std::string((1 << 20) + 1, 'x'));
    settle(device);
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("cannot be sent and are dropped: 1 (up/config"));
}

TEST_F(Field, ADeviceReachesItsOwnSubtreeOnly) {
    certificates.run("device SN2");
    CloudDevice device(settings("SN1"), "SN1");
    device.serve(0, test::echo_command);
    settle(device);
    // With the certificate of another nobody appears as SN1 or takes its place.
    ::testing::internal::CaptureStderr();
    nxapi::Settings stolen = settings("SN2");
    stolen.client_id = "SN1";
    CloudDevice impostor(stolen, "SN1");
    eventually([&] { return impostor.client.is_up(); });
    const size_t known = alice->on("norvex/v1/SN1/status").size();
    impostor.client.upload("up/alarm", "false alarm");
    settle(device);
    settle(device);
    ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(device.client.is_up());
    EXPECT_TRUE(alice->on("norvex/v1/SN1/up/alarm").empty());
    EXPECT_EQ(alice->on("norvex/v1/SN1/status").size(), known);
}

TEST_F(Field, ConsolesListenSideBySideAndForgetDevices) {
    test::Console second(*broker, certificates.of("consoles/alice"));
    {
        CloudDevice device(settings("SN1"), "SN1");
        device.serve(0, test::echo_command);
        settle(device);
        eventually([&] {
            second.loop();
            return !second.on("norvex/v1/SN1/rsp/cloud/0").empty();
        });
        // No console speaks for a device that is there.
        second.publish("norvex/v1/SN1/up/alarm", "false alarm");
        eventually([&] {
            second.publish("norvex/v1/SN1/cmd/cloud/0", "last");
            second.loop();
            alice->loop();
            device.work();
            return alice->last("norvex/v1/SN1/rsp/cloud/0").payload == "<last>";
        });
        EXPECT_TRUE(alice->on("norvex/v1/SN1/up/alarm").empty());
    }
    eventually([&] {  // its last word must not come behind what follows
        alice->loop();
        return alice->last("norvex/v1/SN1/status").payload.find("false") != std::string::npos;
    });
    const char *kept[] = {"status", "up/identity", "up/binding"};
    for (const char *topic : kept) {
        second.publish(std::string("norvex/v1/SN1/") + topic, "", "", "", true);
    }
    eventually([&] {
        second.loop();
        alice->loop();
        return alice->on("norvex/v1/SN1/up/binding") == std::vector<std::string>{""};
    });
    test::Console late(*broker, certificates.of("consoles/alice"));
    late.publish("norvex/v1/SN1/cmd/cloud/0", "echo");
    for (int i = 0; i < 20; ++i) {
        late.loop();
    }
    EXPECT_TRUE(late.received.empty())
        << late.received.front().topic << ": " << late.received.front().payload;
}

}  // namespace

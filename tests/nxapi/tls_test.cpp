/**
 * The broker profile for the field, as it ships: TLS with client certificates, and
 * each device in its own subtree.
 */
#include <gmock/gmock.h>

#include <sstream>

#include "tests/nxapi/cloud_device.h"

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

/** Certificates of a test, made by openssl. */
class Certificates {
  public:
    Certificates() {
        authority("ca");
        authority("other-ca");
    }

    void authority(const std::string &name) {
        run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj "
            "/CN=" +
            name + " -keyout " + name + ".key -out " + name + ".crt");
    }

    /** A certificate for a common name, and for the loopback address. */
    void issue(const std::string &file, const std::string &name, const std::string &by) {
        run("openssl req -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=" + name +
            " -keyout " + file + ".key -out " + file +
            ".csr && printf 'subjectAltName=IP:127.0.0.1' >" + file +
            ".ext && openssl x509 -req -days 2 -in " + file + ".csr -extfile " + file +
            ".ext -CA " + by + ".crt -CAkey " + by + ".key -CAcreateserial -out " + file + ".crt");
    }

    std::string path(const std::string &file) const { return folder_.path() / file; }

  private:
    void run(const std::string &command) {
        const std::string line = "cd " + folder_.path().string() + " && { " + command + "; } 2>log";
        if (std::system(line.c_str()) != 0) {
            throw std::runtime_error(command + ": " + file_text(folder_.path() / "log"));
        }
    }

    test::TempFolder folder_;
};

class Tls : public ::testing::Test {
  protected:
    Tls() {
        certificates.issue("broker", "127.0.0.1", "ca");
        certificates.issue("SN1", "SN1", "ca");
        certificates.issue("console", "console", "ca");
        // The broker reads only what belongs to it.
        std::ofstream(certificates.path("acl")) << file_text(NORVEX_SOURCE_DIR "/config/acl");
    }

    /** The shipped profile, with the test's port and files. */
    std::string profile() const {
        std::string text = file_text(NORVEX_SOURCE_DIR "/config/mosquitto-tls.conf");
        replace(text, "listener 8883", "listener PORT 127.0.0.1");
        replace(text, "/etc/mosquitto/certs", certificates.path(""));
        replace(text, "/etc/mosquitto/acl", certificates.path("acl"));
        return text;
    }

    nxapi::Settings settings(const test::Broker &broker, const std::string &who) const {
        nxapi::Settings settings = test::settings_for(broker);
        settings.broker.tls = true;
        settings.cafile = certificates.path("ca.crt");
        settings.certfile = certificates.path(who + ".crt");
        settings.keyfile = certificates.path(who + ".key");
        return settings;
    }

    Certificates certificates;
};

TEST_F(Tls, AHandshakeThatFailsIsTriedAgain) {
    // The broker first shows a certificate that another authority vouches for.
    certificates.issue("broker", "127.0.0.1", "other-ca");
    test::Broker broker(profile());
    ::testing::internal::CaptureStderr();
    CloudDevice device(settings(broker, "SN1"), "SN1");
    EXPECT_TRUE(eventually([&] {  // the device's own word on that certificate
        return file_text(broker.folder() / "log").find("alert unknown ca") != std::string::npos;
    }));
    EXPECT_FALSE(device.client.is_up());
    broker.stop();
    certificates.issue("broker", "127.0.0.1", "ca");
    broker.start();
    EXPECT_TRUE(eventually([&] { return device.client.is_up(); }));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("certificate verify failed"));
}

TEST_F(Tls, AFileThatIsMissingIsNamedAndTriedAgain) {
    test::Broker broker(profile());
    nxapi::Settings late = settings(broker, "SN1");
    late.certfile = certificates.path("late.crt");
    ::testing::internal::CaptureStderr();
    CloudDevice device(late, "SN1");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    std::filesystem::copy_file(certificates.path("SN1.crt"), late.certfile);
    EXPECT_TRUE(eventually([&] { return device.client.is_up(); }));
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("cannot read " + late.certfile));
}

TEST_F(Tls, WithoutVerificationAnyBrokerIsTaken) {
    certificates.issue("broker", "somebody-else", "other-ca");
    test::Broker broker(profile());
    nxapi::Settings trusting = settings(broker, "SN1");
    trusting.tls_verify = false;
    CloudDevice device(trusting, "SN1");
    EXPECT_TRUE(eventually([&] { return device.client.is_up(); }));
}

TEST_F(Tls, ADeviceReachesItsOwnSubtreeOnly) {
    certificates.issue("SN2", "SN2", "ca");
    certificates.issue("SN3", "SN3", "ca");
    test::Broker broker(profile());
    test::Console console(broker, {certificates.path("ca.crt"), certificates.path("console.crt"),
                                   certificates.path("console.key")});
    CloudDevice device(settings(broker, "SN1"), "SN1");
    device.serve(0, test::echo_command);
    eventually([&] {
        console.publish("norvex/v1/SN1/cmd/cloud/0", "{}");
        console.loop();
        device.work();
        return !console.on("norvex/v1/SN1/rsp/cloud/0").empty();
    });
    EXPECT_FALSE(console.on("norvex/v1/SN1/up/identity").empty());

    // With the certificate of another nobody appears as SN1, hears or commands it, or
    // takes its place on the broker.
    ::testing::internal::CaptureStderr();
    nxapi::Settings stolen = settings(broker, "SN2");
    stolen.client_id = "SN1";
    CloudDevice impostor(stolen, "SN1");
    test::Console thief(broker, {certificates.path("ca.crt"), certificates.path("SN3.crt"),
                                 certificates.path("SN3.key")});
    eventually([&] { return impostor.client.is_up(); });
    const size_t known = console.on("norvex/v1/SN1/status").size();
    impostor.client.upload("up/alarm", "false alarm");
    thief.publish("norvex/v1/SN1/cmd/cloud/0", "stolen");
    eventually([&] {
        thief.loop();
        console.publish("norvex/v1/SN1/cmd/cloud/0", "last");
        console.loop();
        device.work();
        return console.last("norvex/v1/SN1/rsp/cloud/0").payload == "<last>";
    });
    ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(thief.received.empty());
    EXPECT_TRUE(device.client.is_up());
    EXPECT_TRUE(console.on("norvex/v1/SN1/up/alarm").empty());
    EXPECT_EQ(console.on("norvex/v1/SN1/status").size(), known);
    EXPECT_THAT(console.on("norvex/v1/SN1/rsp/cloud/0"),
                ::testing::Not(::testing::Contains("<stolen>")));
}

}  // namespace

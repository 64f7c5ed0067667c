#include "nxapi/settings.h"

#include <gtest/gtest.h>

#include <fstream>

#include "tests/support/support.h"

namespace {

using nxapi::BrokerAddress;
using nxapi::Settings;

TEST(BrokerAddress, IsReadAsPeopleWriteIt) {
    struct Row {
        const char *text;
        const char *host;
        int port;
        bool tls;
    };
    const Row rows[] = {
        {"mqtt://cloud.example", "cloud.example", 1883, false},
        {"mqtts://cloud.example", "cloud.example", 8883, true},
        {"mqtt://127.0.0.1:65535/", "127.0.0.1", 65535, false},
        {"mqtts://[::1]:8884", "::1", 8884, true},  // its colons are no port
        {"mqtt://[::1]", "::1", 1883, false},
    };
    for (const Row &row : rows) {
        std::vector<BrokerAddress> addresses;
        std::string why;
        ASSERT_TRUE(nxapi::parse_brokers(row.text, addresses, why)) << row.text << ": " << why;
        ASSERT_EQ(addresses.size(), 1U);
        EXPECT_EQ(addresses[0].host, row.host) << row.text;
        EXPECT_EQ(addresses[0].port, row.port) << row.text;
        EXPECT_EQ(addresses[0].tls, row.tls) << row.text;
    }
}

TEST(BrokerAddress, OfAnotherFormIsRefusedWithASentence) {
    for (const char *text :
         {"", "cloud.example", "http://cloud.example", "mqtt://", "mqtt://:1883", "mqtt://[::1",
          "mqtt://h:0", "mqtt://h:65536", "mqtt://h:", "mqtt://h:18x", "mqtt://h:1883/topic"}) {
        std::vector<BrokerAddress> addresses{{"before", 1, true}};
        std::string why;
        EXPECT_FALSE(nxapi::parse_brokers(text, addresses, why)) << text;
        EXPECT_NE(why.find('"' + std::string(text) + '"'), why.npos) << why;
        EXPECT_TRUE(addresses.empty()) << text;
        EXPECT_FALSE(nxapi::parse_brokers("mqtt://h," + std::string(text), addresses, why)) << text;
        EXPECT_EQ(why.find('"' + std::string(text) + '"'), 0U) << why;
        EXPECT_TRUE(addresses.empty()) << text;
    }
    // A password does not come back, wherever it stands.
    for (const char *text : {"mqtt://user:secret@h", "user:secret@h", "mqtts://h@secret"}) {
        std::vector<BrokerAddress> addresses;
        std::string why;
        EXPECT_FALSE(nxapi::parse_brokers(text, addresses, why));
        EXPECT_EQ(why.substr(0, 34), "the broker address names a user: n") << why;
        EXPECT_EQ(why.find("secret"), why.npos) << why;
    }
}

TEST(Settings, TakeEveryKeyWithBlanksAndRemarksAround) {
    Settings settings;
    std::string why;
    ASSERT_TRUE(
        nxapi::parse_settings("# a remark\n\n"
                              "  broker = mqtts://cloud.example,mqtt://other:99 \r\n"
                              "username=device\n"
                              "password=a=b#c\n"  // only a whole line is a remark
                              "client_id=id\ncafile=/ca\ncertfile=/cert\nkeyfile=/key\n"
                              "tls_verify=no\nkeepalive_s=5\nretry_ms=20\n"
                              "connect_timeout_ms=300\nqueue_messages=3\n"
                              "queue_bytes=1024\n"
                              "fault=nx_api_lib_init:-1\nfault=set_debug_level:0",
                              settings, why))
        << why;
    ASSERT_EQ(settings.brokers.size(), 2U);
    EXPECT_EQ(settings.brokers[0].host, "cloud.example");
    EXPECT_EQ(settings.brokers[1].port, 99);
    EXPECT_EQ(settings.username, "device");
    EXPECT_EQ(settings.password, "a=b#c");
    EXPECT_EQ(settings.client_id, "id");
    EXPECT_EQ(settings.cafile, "/ca");
    EXPECT_EQ(settings.certfile, "/cert");
    EXPECT_EQ(settings.keyfile, "/key");
    EXPECT_FALSE(settings.tls_verify);
    EXPECT_EQ(settings.keepalive_s, 5);
    EXPECT_EQ(settings.retry_ms, 20);
    EXPECT_EQ(settings.connect_timeout_ms, 300);
    EXPECT_EQ(settings.queue_messages, 3);
    EXPECT_EQ(settings.queue_bytes, 1024);
    const std::vector<std::pair<std::string, int>> faults = {{"nx_api_lib_init", -1},
                                                             {"set_debug_level", 0}};
    EXPECT_EQ(settings.faults, faults);
}

TEST(Settings, NameTheLineThatIsWrong) {
    const std::pair<const char *, const char *> rows[] = {
        {"secret", "line 1: this is no key=value"},
        {"\n\nsecret=mqtt://h", "line 3: there is no setting of this name"},
        {"retry_ms=5\nretry_ms=6", "line 2: retry_ms is set a second time"},
        {"keepalive_s=4", "line 1: keepalive_s is no number between 5 and 65535"},
        {"keepalive_s=60secret", "line 1: keepalive_s is no number between 5 and 65535"},
        {"tls_verify=secret", "line 1: tls_verify is neither yes nor no"},
        {"fault=secret", "line 1: fault is no call with its result"},
        {"broker=secret", "line 1: broker is no broker address"},
        {"broker=mqtt://a:secret@h", "line 1: broker names a user: nxapi.conf has username="},
        {"certfile=secret", "certfile and keyfile are set together or not at all"},
        {"broker=mqtts://h", "a mqtts:// broker needs cafile"},
    };
    for (const auto &[text, sentence] : rows) {
        Settings settings;
        std::string why;
        EXPECT_FALSE(nxapi::parse_settings(text, settings, why)) << text;
        EXPECT_EQ(why.substr(0, std::strlen(sentence)), sentence);
        EXPECT_EQ(why.find("secret"), why.npos) << why;
    }
}

TEST(Settings, TellAMissingFileFromAMalformedOne) {
    const test::TempFolder folder;
    const std::string path = folder.path() / "nxapi.conf";
    Settings settings;
    std::string why;
    EXPECT_EQ(nxapi::read_settings(path.c_str(), settings, why), nxapi::SettingsFile::missing);
    EXPECT_EQ(why, "cannot read " + path + " (No such file or directory)");
    EXPECT_EQ(nxapi::read_settings(folder.path().c_str(), settings, why),
              nxapi::SettingsFile::missing);
    std::ofstream(path) << "x";
    EXPECT_EQ(nxapi::read_settings(path.c_str(), settings, why), nxapi::SettingsFile::malformed);
    EXPECT_EQ(why, path + ", line 1: this is no key=value");
}

}  // namespace

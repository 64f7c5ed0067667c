#include <gmock/gmock.h>

#include <thread>

#include "tests/nxapi/cloud_device.h"

namespace {

using test::CloudDevice;
using test::Console;
using test::eventually;
using test::Received;
using ::testing::ElementsAre;

constexpr const char *online = R"({"online":true})";
constexpr const char *offline = R"({"online":false})";

class Link : public ::testing::Test {
  protected:
    /** Works for everybody until the condition holds. */
    bool until(const std::vector<CloudDevice *> &devices, const std::function<bool()> &done) {
        return eventually([&] {
            console.loop();
            for (CloudDevice *device : devices) {
                device->work();
            }
            return done();
        });
    }

    bool until_on(CloudDevice &device, const std::string &topic, size_t count = 1) {
        return until({&device}, [&] { return console.on(topic).size() >= count; });
    }

    /** Of a device that comes back after a console of the new broker. */
    nxapi::Settings unhurried() const {
        nxapi::Settings settings = test::settings_for(broker);
        settings.retry_ms = 3000;
        return settings;
    }

    test::Broker broker;
    Console console{broker};
};

TEST_F(Link, PresenceAndIdentityStayOnTheBroker) {
    {
        CloudDevice device(broker, "SN1");
        ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
        EXPECT_EQ(console.last("norvex/v1/SN1/status").payload, online);
        EXPECT_EQ(console.last("norvex/v1/SN1/up/identity").payload,
                  R"({"manage_en":0,"device_type":0,"serial":"SN1","mac":"",)"
                  R"("firmware_version":"","hardware_version":"","brand":"","model":"ZX-A5"})");
        device.client.upload("up/binding", "{}");
        device.client.upload("up/alarm", "{}");
        ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/alarm"));
    }
    ASSERT_TRUE(until({}, [&] { return console.on("norvex/v1/SN1/status").size() == 2; }));
    EXPECT_EQ(console.last("norvex/v1/SN1/status").payload, offline);

    Console late(broker);
    eventually([&] {
        late.loop();
        return late.received.size() >= 3;
    });
    EXPECT_TRUE(late.last("norvex/v1/SN1/up/identity").retained);
    EXPECT_EQ(late.last("norvex/v1/SN1/up/binding").payload, "{}");
    EXPECT_EQ(late.last("norvex/v1/SN1/status").payload, offline);
    EXPECT_TRUE(late.on("norvex/v1/SN1/up/alarm").empty()) << "an alarm is not retained";
}

TEST_F(Link, CommandsAreAnsweredOnTheMainThread) {
    CloudDevice device(broker, "SN1");
    device.serve(0, test::echo_command);
    device.serve(1, test::refusing_command);
    // The slot's second pointer and the thread are the callback's to see.
    auto main_thread = std::this_thread::get_id();
    device.serve(
        2,
        [](void *, int, const char *, char **, int *, void *data) {
            return *static_cast<std::thread::id *>(data) == std::this_thread::get_id() ? 5 : 6;
        },
        &main_thread);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));

    struct Row {
        const char *slot;
        std::string request;
        std::string response;
        const char *result;
    };
    const Row rows[] = {
        {"cloud/0", R"({"a":1})", R"(<{"a":1}>)", "0"},  // without the NUL that was counted
        {"cloud/0", "", "<>", "0"},                      // no request at all
        {"cloud/0", std::string("a\0b", 3), std::string("<a\0b>", 5), "0"},
        {"cloud/0", std::string(100'000, 'x'), "<" + std::string(100'000, 'x') + ">", "0"},
        {"cloud/1", "{}", "", "-1"},   // the callback refuses
        {"cloud/2", "{}", "", "5"},    // another result than the usual two, without a text
        {"cloud/3", "{}", "", "-1"},   // an empty slot
        {"cloud/99", "{}", "", "-1"},  // behind the table
        {"cloud/x", "{}", "", "-1"},   // no number
        {"clouds/0", "{}", "", "-1"},  // no family
    };
    for (const Row &row : rows) {
        console.received.clear();
        console.publish(std::string("norvex/v1/SN1/cmd/") + row.slot, row.request);
        const std::string response = std::string("norvex/v1/SN1/rsp/") + row.slot;
        ASSERT_TRUE(until_on(device, response)) << row.slot;
        EXPECT_EQ(console.last(response).payload, row.response) << row.slot;
        EXPECT_EQ(console.last(response).result, row.result) << row.slot;
    }
}

TEST_F(Link, ACommandWithoutMemoryTakesNoOtherWithIt) {
    CloudDevice device(broker, "SN1");
    int starved = 0;
    device.serve(
        0,
        [](void *, int, const char *, char **, int *, void *data) -> int {
            ++*static_cast<int *>(data);
            throw std::bad_alloc();
        },
        &starved);
    device.serve(1, test::echo_command);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    for (size_t round = 1; round <= 2; ++round) {
        console.publish("norvex/v1/SN1/cmd/cloud/0", "");
        console.publish("norvex/v1/SN1/cmd/cloud/1", "");
        ASSERT_TRUE(until_on(device, "norvex/v1/SN1/rsp/cloud/1", round));
        EXPECT_EQ(starved, static_cast<int>(round)) << "run once each";
    }
}

TEST_F(Link, ResponseTopicAndCorrelationComeBack) {
    CloudDevice device(broker, "SN1");
    device.serve(0, test::echo_command);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    const std::string correlation("\0\xff id", 5);
    console.publish("norvex/v1/SN1/cmd/cloud/0", "{}", "norvex/v1/console/7", correlation);
    ASSERT_TRUE(until_on(device, "norvex/v1/console/7"));
    EXPECT_EQ(console.last("norvex/v1/console/7").correlation, correlation);
    EXPECT_EQ(console.last("norvex/v1/console/7").payload, "<{}>");
    EXPECT_TRUE(console.on("norvex/v1/SN1/rsp/cloud/0").empty());
}

TEST_F(Link, RetainedCommandsAreDropped) {
    console.publish("norvex/v1/SN1/cmd/cloud/0", "old", "", "", true);
    ASSERT_TRUE(until({}, [&] { return console.received.size() == 1; }));
    CloudDevice device(broker, "SN1");
    device.serve(0, test::echo_command);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    console.publish("norvex/v1/SN1/cmd/cloud/0", "live, but retained", "", "", true);
    console.publish("norvex/v1/SN1/cmd/cloud/0", "live");
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/rsp/cloud/0"));
    EXPECT_THAT(console.on("norvex/v1/SN1/rsp/cloud/0"), ElementsAre("<live>"));
}

TEST_F(Link, UploadsWaitForTheBrokerUpToABound) {
    broker.stop();
    nxapi::Settings settings = unhurried();
    settings.queue_messages = 3;
    settings.queue_bytes = 1024;
    CloudDevice device(settings, "SN1");
    for (const char *text : {"1", "2", "3", "4", "5"}) {
        EXPECT_TRUE(device.client.upload("up/alarm", text));
        EXPECT_TRUE(device.client.upload("up/binding", text));
    }
    EXPECT_FALSE(device.client.upload("up/config", std::string(1025, 'x')));
    broker.start();
    Console back(broker);
    eventually([&] {
        back.loop();
        return back.on("norvex/v1/SN1/up/alarm").size() == 3;
    });
    EXPECT_THAT(back.on("norvex/v1/SN1/up/alarm"), ElementsAre("3", "4", "5"));
    EXPECT_EQ(back.last("norvex/v1/SN1/up/binding").payload, "5") << "replaced, not queued";
}

TEST(LinkToASmallBroker, TellsOfADocumentThatIsTooLargeForIt) {
    const test::Broker broker(
        "listener PORT 127.0.0.1\nallow_anonymous true\nmax_packet_size 400\n");
    ::testing::internal::CaptureStderr();
    {
        CloudDevice device(broker, "SN1");
        device.client.upload("up/binding", std::string(400, 'x'));
        eventually([&] { return device.client.is_up(); });
    }
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                ::testing::HasSubstr("a message to norvex/v1/SN1/up/binding cannot be sent"));
}

TEST_F(Link, ComesBackWithTheBroker) {
    CloudDevice device(unhurried(), "SN1");
    device.serve(0, test::echo_command);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    device.client.upload("up/binding", "bound");
    // A broker that takes its leave, and one that just dies.
    for (const int signal : {SIGTERM, SIGKILL}) {
        broker.stop(signal);
        eventually([&] { return !device.client.is_up(); });
        device.client.upload("up/alarm", "kept");
        broker.start();
        Console back(broker);
        eventually([&] {
            back.loop();
            return !back.on("norvex/v1/SN1/up/alarm").empty();
        });
        EXPECT_EQ(back.last("norvex/v1/SN1/status").payload, online);
        EXPECT_EQ(back.last("norvex/v1/SN1/up/binding").payload, "bound");
        EXPECT_THAT(back.on("norvex/v1/SN1/up/alarm"), ElementsAre("kept"));
        back.publish("norvex/v1/SN1/cmd/cloud/0", "again");
        eventually([&] {
            back.loop();
            device.work();
            return !back.on("norvex/v1/SN1/rsp/cloud/0").empty();
        });
    }
}

TEST_F(Link, DevicesKeepToThemselves) {
    CloudDevice one(broker, "SN1");
    CloudDevice two(broker, "SN2");
    one.serve(0, test::echo_command);
    two.serve(0, test::refusing_command);
    ASSERT_TRUE(until({&one, &two}, [&] {
        return console.on("norvex/v1/SN1/up/identity").size() == 1 &&
               console.on("norvex/v1/SN2/up/identity").size() == 1;
    }));
    console.publish("norvex/v1/SN1/cmd/cloud/0", "1");
    console.publish("norvex/v1/SN2/cmd/cloud/0", "2");
    ASSERT_TRUE(until({&one, &two}, [&] {
        return console.on("norvex/v1/SN1/rsp/cloud/0").size() == 1 &&
               console.on("norvex/v1/SN2/rsp/cloud/0").size() == 1;
    }));
    EXPECT_EQ(console.last("norvex/v1/SN1/rsp/cloud/0").payload, "<1>");
    EXPECT_EQ(console.last("norvex/v1/SN2/rsp/cloud/0").result, "-1");
}

TEST_F(Link, MovesToTheSerialThatTheCloudAssigns) {
    CloudDevice::assigned().clear();
    CloudDevice device(broker, "SN1");
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    for (const char *serial : {"", "a/b", "a+b", "123456789012345678901234567890123"}) {
        console.publish("norvex/v1/SN1/cmd/system/serial", serial);
    }
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/rsp/system/serial", 4));
    EXPECT_EQ(console.last("norvex/v1/SN1/rsp/system/serial").result, "-1");
    EXPECT_TRUE(CloudDevice::assigned().empty());

    console.publish("norvex/v1/SN1/cmd/system/serial", "SN2");
    ASSERT_TRUE(until_on(device, "norvex/v1/SN2/up/identity"));
    EXPECT_THAT(CloudDevice::assigned(), ElementsAre("SN2"));
    EXPECT_EQ(console.last("norvex/v1/SN1/rsp/system/serial").result, "0");
    EXPECT_EQ(console.last("norvex/v1/SN1/status").payload, offline);
    EXPECT_EQ(console.last("norvex/v1/SN2/status").payload, online);
    EXPECT_NE(console.last("norvex/v1/SN2/up/identity").payload.find(R"("serial":"SN2")"),
              std::string::npos);
}

TEST_F(Link, ASerialThatNoTopicCanHoldIsRefused) {
    for (const char *serial : {"", "a/b", "a+", "#", "a\nb", "\xff"}) {
        EXPECT_FALSE(nxapi::is_serial(serial)) << serial;
    }
    EXPECT_FALSE(nxapi::is_serial(std::string_view("a\0b", 3)));
    EXPECT_TRUE(nxapi::is_serial("SN 1.2-\xc3\xbc"));
}

TEST_F(Link, UploadsComeFromEveryThread) {
    constexpr size_t each = 200;
    nxapi::Settings settings = test::settings_for(broker);
    settings.queue_messages = 4 * each;  // uploads and responses
    CloudDevice device(settings, "SN1");
    device.serve(0, test::echo_command);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (size_t n = 0; n < each; ++n) {
                device.client.upload("up/running_log", "line");
            }
        });
    }
    for (size_t n = 0; n < each; ++n) {
        console.publish("norvex/v1/SN1/cmd/cloud/0", "x");
    }
    const bool done = until({&device}, [&] {
        return console.on("norvex/v1/SN1/up/running_log").size() == 3 * each &&
               console.on("norvex/v1/SN1/rsp/cloud/0").size() == each;
    });
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(done);
}

TEST_F(Link, ABusyMainThreadDoesNotCostMemoryWithoutEnd) {
    CloudDevice device(broker, "SN1");
    device.serve(0, test::echo_command);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    constexpr size_t surplus = 5;
    for (size_t n = 0; n < nxapi::Inbox::most_commands + surplus; ++n) {
        console.publish("norvex/v1/SN1/cmd/cloud/0", "");
    }
    // The agent's main thread does nothing: what does not fit is refused at once.
    const std::string response = "norvex/v1/SN1/rsp/cloud/0";
    ASSERT_TRUE(until({}, [&] { return console.on(response).size() == surplus; }));
    EXPECT_EQ(console.last(response).result, "-1");
    ASSERT_TRUE(until_on(device, response, nxapi::Inbox::most_commands + surplus));
    EXPECT_EQ(console.last(response).payload, "<>");
}

TEST(LinkWithoutBroker, GivesUpOnOneThatNeverAnswers) {
    const test::Listener silent;
    nxapi::Settings settings;
    settings.broker = {"127.0.0.1", silent.port(), false};
    settings.retry_ms = 10;
    settings.connect_timeout_ms = 50;
    CloudDevice device(settings, "SN1");
    std::vector<int> attempts;
    eventually([&] {
        attempts.push_back(accept4(silent.fd(), nullptr, nullptr, SOCK_CLOEXEC));
        return attempts.size() == 3;
    });
    for (const int attempt : attempts) {
        close(attempt);
    }
    EXPECT_FALSE(device.client.is_up());
}

TEST(LinkWithoutBroker, TakesNothingWithoutSettings) {
    nxapi::Registry registry;
    nxapi::Client client(nxapi::Settings{}, registry);
    EXPECT_TRUE(client.start());
    nx_basic_info info{};
    std::strcpy(info.serial, "SN1");
    EXPECT_TRUE(client.introduce(info));
    EXPECT_FALSE(client.upload("up/alarm", "{}"));
}

}  // namespace

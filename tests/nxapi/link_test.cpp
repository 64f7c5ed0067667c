#include <gmock/gmock.h>

#include <fcntl.h>
#include <netdb.h>

#include <thread>

#include "nxapi/mqtt_error.h"
#include "nxapi/sigpipe.h"
#include "nxapi/trouble.h"
#include "tests/nxapi/hand_broker.h"

namespace {

using test::CloudDevice;
using test::Console;
using test::eventually;
using test::HandBroker;
using test::Received;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char *online = R"({"online":true,)";
constexpr const char *offline = R"({"online":false,)";

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

    test::Broker broker;
    Console console{broker};
};

TEST_F(Link, PresenceAndIdentityStayOnTheBroker) {
    {
        CloudDevice device(broker, "SN1");
        ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
        EXPECT_THAT(console.last("norvex/v1/SN1/status").payload, StartsWith(online));
        EXPECT_EQ(console.last("norvex/v1/SN1/up/identity").payload,
                  R"({"manage_en":0,"device_type":0,"serial":"SN1","mac":"",)"
                  R"("firmware_version":"","hardware_version":"","brand":"","model":"ZX-A5"})");
        device.client.upload("up/binding", "{}");
        device.info.manage_en = 1;
        EXPECT_TRUE(device.client.introduce(device.info));
        device.client.upload("up/alarm", "{}");
        ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/alarm"));
    }
    ASSERT_TRUE(until({}, [&] { return console.on("norvex/v1/SN1/status").size() == 2; }));
    EXPECT_THAT(console.last("norvex/v1/SN1/status").payload, StartsWith(offline));

    Console late(broker);
    eventually([&] {
        late.loop();
        return late.received.size() >= 3;
    });
    EXPECT_TRUE(late.last("norvex/v1/SN1/up/identity").retained);
    EXPECT_THAT(late.last("norvex/v1/SN1/up/identity").payload, HasSubstr(R"("manage_en":1)"));
    EXPECT_EQ(late.last("norvex/v1/SN1/up/binding").payload, "{}");
    EXPECT_THAT(late.last("norvex/v1/SN1/status").payload, StartsWith(offline));
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
    device.serve(3, [](void *, int, const char *in, char **out, int *out_len, void *) {
        test::echo_command(nullptr, 0, in, out, out_len, nullptr);
        *out_len = -1;
        return 0;
    });
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
        {"cloud/3", "{}", "", "0"},    // a text without a length
        {"cloud/4", "{}", "", "-1"},   // an empty slot
        {"cloud/99", "{}", "", "-1"},  // behind the table
        {"cloud/x", "{}", "", "-1"},   // no number
        {"cloud/0x", "{}", "", "-1"},  // nor is that
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

TEST_F(Link, ResponsesGoWhereTheyMay) {
    Console everywhere(broker, {}, "#");
    CloudDevice device(broker, "SN1");
    device.serve(0, test::echo_command);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    const std::string deep = std::string(63, '/');
    const std::pair<std::string, bool> asked[] = {
        {"console/7", true},
        {"norvex/v1", true},  // is no device's
        {"norvex/v1/SN1/rsp/app/cloud/0", true},
        {"norvex/v1/SN1/rsp/", false},
        {"norvex/v1/SN1/status", false},
        {"norvex/v1/SN1/up/identity", false},
        {"norvex/v1/SN1/cmd/cloud/0", false},
        {"norvex/v1/SN10/rsp/cloud/0", false},
        {"norvex/v1/+/rsp/cloud/0", false},
        {"$SYS/broker", false},
        {"console/#", false},
        {deep, true},
        {deep + "/", false},
    };
    std::string correlation("\0\xff id", 5);
    ::testing::internal::CaptureStderr();
    for (const auto &[topic, honoured] : asked) {
        ++correlation[2];
        everywhere.received.clear();
        console.publish("norvex/v1/SN1/cmd/cloud/0", "{}", topic, correlation);
        ASSERT_TRUE(until({&device}, [&] {
            everywhere.loop();
            return !everywhere.received.empty() && everywhere.received.back().payload == "<{}>";
        })) << topic;
        EXPECT_EQ(everywhere.received.back().topic, honoured ? topic : "norvex/v1/SN1/rsp/cloud/0");
        EXPECT_EQ(everywhere.received.back().correlation, correlation);
    }
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("is not the device's: 1 (norvex/v1/SN1/rsp/)\n"));
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
    broker.signal(SIGSTOP);
    ::testing::internal::CaptureStderr();
    nxapi::Settings settings = test::settings_for(broker);
    settings.queue_messages = 3;
    settings.queue_bytes = 1024;
    CloudDevice device(settings, "SN1");
    for (const char *text : {"1", "2", "3", "4", "5"}) {
        EXPECT_TRUE(device.client.upload("up/alarm", text));
        EXPECT_TRUE(device.client.upload("up/binding", text));
    }
    EXPECT_FALSE(device.client.upload("up/config", std::string(1025, 'x')));
    broker.signal(SIGCONT);
    eventually([&] {
        console.loop();
        return console.on("norvex/v1/SN1/up/alarm").size() == 3;
    });
    EXPECT_THAT(console.on("norvex/v1/SN1/up/alarm"), ElementsAre("3", "4", "5"));
    EXPECT_EQ(console.last("norvex/v1/SN1/up/binding").payload, "5") << "replaced, not queued";

    device.serve(0, test::echo_command);
    console.publish("norvex/v1/SN1/cmd/cloud/0", std::string(1020, 'x'));
    eventually([&] {
        console.loop();
        device.work();
        return !console.on("norvex/v1/SN1/rsp/cloud/0").empty();
    });
    EXPECT_EQ(console.last("norvex/v1/SN1/rsp/cloud/0").result, "-1") << "larger than the queue";
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_THAT(said, HasSubstr("in the queue and are dropped: 2 (first the oldest)\n"));
    EXPECT_THAT(said, HasSubstr("too large to send: 1 (cloud/0)\n"));
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
                HasSubstr("cannot be sent and are dropped: 1 (norvex/v1/SN1/up/binding, "));
}

TEST_F(Link, ComesBackWithTheBroker) {
    nxapi::Settings unhurried = test::settings_for(broker);
    unhurried.retry_ms = 5000;  // a console of the new broker is there before it
    CloudDevice device(unhurried, "SN1");
    device.serve(0, test::echo_command);
    ASSERT_TRUE(until_on(device, "norvex/v1/SN1/up/identity"));
    device.client.upload("up/binding", "bound");
    broker.stop();
    eventually([&] {
        device.work();
        return !device.client.is_up();
    });
    device.client.upload("up/alarm", "kept");
    broker.start();
    Console back(broker);
    eventually([&] {
        back.loop();
        return !back.on("norvex/v1/SN1/up/alarm").empty();
    });
    EXPECT_THAT(back.last("norvex/v1/SN1/status").payload, StartsWith(online));
    EXPECT_EQ(back.last("norvex/v1/SN1/up/binding").payload, "bound");
    EXPECT_THAT(back.on("norvex/v1/SN1/up/alarm"), ElementsAre("kept"));
    back.publish("norvex/v1/SN1/cmd/cloud/0", "again");
    eventually([&] {
        back.loop();
        device.work();
        return !back.on("norvex/v1/SN1/rsp/cloud/0").empty();
    });
}

TEST_F(Link, MovesToTheSerialThatTheCloudAssigns) {
    CloudDevice::assigned().clear();
    CloudDevice device(broker, "SERIAL1");
    ASSERT_TRUE(until_on(device, "norvex/v1/SERIAL1/up/identity"));
    for (const char *serial : {"", "a/b", "a+b", "123456789012345678901234567890123"}) {
        console.publish("norvex/v1/SERIAL1/cmd/system/serial", serial);
    }
    ASSERT_TRUE(until_on(device, "norvex/v1/SERIAL1/rsp/system/serial", 4));
    EXPECT_EQ(console.last("norvex/v1/SERIAL1/rsp/system/serial").result, "-1");
    EXPECT_TRUE(CloudDevice::assigned().empty());

    console.publish("norvex/v1/SERIAL1/cmd/system/serial", "SN2");
    ASSERT_TRUE(until_on(device, "norvex/v1/SN2/up/identity"));  // a shorter one
    EXPECT_THAT(CloudDevice::assigned(), ElementsAre("SN2"));
    EXPECT_EQ(console.last("norvex/v1/SERIAL1/rsp/system/serial").result, "0");
    EXPECT_THAT(console.last("norvex/v1/SERIAL1/status").payload, StartsWith(offline));
    EXPECT_THAT(console.last("norvex/v1/SN2/status").payload, StartsWith(online));
    EXPECT_NE(console.last("norvex/v1/SN2/up/identity").payload.find(R"("serial":"SN2")"),
              std::string::npos);
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

TEST(Troubles, AreSaidAtOnceAndThenTogether) {
    nxapi::Troubles troubles;
    const auto start = nxapi::Troubles::Clock::now();
    const auto said_at = [&](int second) {
        ::testing::internal::CaptureStderr();
        troubles.tell(start + std::chrono::seconds(second));
        return ::testing::internal::GetCapturedStderr();
    };
    troubles.add(nxapi::Trouble::retained, "a");
    troubles.add(nxapi::Trouble::refused, "b", 3);
    EXPECT_EQ(said_at(0),
              "nxapi: retained commands are dropped: 1 (a)\n"
              "nxapi: commands are refused, since too many wait: 3 (first b)\n");
    troubles.add(nxapi::Trouble::retained, "c");
    troubles.add(nxapi::Trouble::retained, "d");
    EXPECT_EQ(said_at(9), "");
    EXPECT_EQ(said_at(10), "nxapi: retained commands are dropped: 2 (first c)\n");
    EXPECT_EQ(said_at(20), "");
}

TEST(SigpipeHeld, AWriteToAPeerThatIsGoneRaisesNoSignal) {
    const auto before = std::signal(SIGPIPE, SIG_DFL);  // consoles have it ignored
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    {
        nxapi::SigpipeHeld signal;
        EXPECT_EQ(write(ends[1], "x", 1), -1);
        signal.write_failed();
    }
    close(ends[1]);
    std::signal(SIGPIPE, before);
}

TEST(MqttError, NeverTellsOfSuccess) {
    for (const int result : {MOSQ_ERR_SUCCESS, MOSQ_ERR_ERRNO, MOSQ_ERR_EAI}) {
        EXPECT_EQ(nxapi::mqtt_error_text(result, 0), "the broker closed the connection");
    }
    EXPECT_EQ(nxapi::mqtt_error_text(MOSQ_ERR_ERRNO, ECONNREFUSED), "Connection refused");
    EXPECT_EQ(nxapi::mqtt_error_text(MOSQ_ERR_EAI, EAI_NONAME), "Name or service not known");
}

TEST(LinkToBrokers, ADeviceMovesOnAndTellsItsNewestConnection) {
    test::Broker first;
    test::Broker second;
    const test::Listener silent;
    nxapi::Settings settings = test::settings_for(first);
    settings.connect_timeout_ms = 200;
    settings.brokers.push_back({"127.0.0.1", silent.port(), false});
    settings.brokers.push_back({"127.0.0.1", test::Listener().port(), false});
    settings.brokers.push_back({"localhost", second.port(), false});
    CloudDevice device(settings, "SN1");
    const std::string topic = "norvex/v1/SN1/status";
    Console consoles[] = {Console(first), Console(second)};
    // The device is on the broker whose console heard of the newest connection.
    unsigned connection = 0;
    const auto place_of_newest = [&](int besides) {
        int place = -1;
        eventually([&] {
            device.work();
            for (int i = 0; i < 2; ++i) {
                consoles[i].loop(1);
                unsigned number = 0;
                double since = 0;
                if (i != besides && !consoles[i].on(topic).empty() &&
                    sscanf(consoles[i].last(topic).payload.c_str(),
                           R"({"online":true,"connection":%u,"since":%lf})", &number,
                           &since) == 2 &&
                    number > connection) {
                    EXPECT_NEAR(since, static_cast<double>(time(nullptr)), 60);
                    connection = number;
                    place = i;
                }
            }
            return place >= 0;
        });
        return place;
    };
    const int start = place_of_newest(-1);
    (start == 0 ? first : second).stop(SIGKILL);
    EXPECT_EQ(place_of_newest(start), 1 - start);
}

TEST(LinkByHand, ARivalUnderTheSameSerialIsNamed) {
    HandBroker broker;
    struct Row {
        int lives;
        bool told; /**< by the broker */
        bool named;
    };
    for (const Row &row : {Row{1, true, true}, Row{2, false, false}, Row{3, false, true}}) {
        ::testing::internal::CaptureStderr();
        {
            CloudDevice device(broker.settings(), "SN1");
            for (int life = 0; life < row.lives; ++life) {
                broker.let_in();
                broker.next_on("norvex/v1/SN1/up/identity");
                if (row.told) {
                    broker.answer(0xe0, "\x8e");  // session taken over
                }
                broker.hang_up();
            }
            eventually([&] { return !device.client.is_up(); });
        }
        const std::string said = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(said.find("); another client probably uses the serial number SN1;") != said.npos,
                  row.named)
            << said;
        EXPECT_EQ(said.find("(Session taken over)") != said.npos, row.told) << said;
    }
}

TEST(LinkByHand, PausesBeginAnewBehindASoundConnection) {
    HandBroker broker;
    nxapi::Settings settings = broker.settings();
    settings.retry_ms = 1;
    CloudDevice device(settings, "SN1");
    for (int failure = 0; failure < 11; ++failure) {
        broker.accept();
    }
    broker.let_in();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto end = test::Clock::now();
    broker.let_in();
    EXPECT_LT(test::Clock::now() - end, std::chrono::milliseconds(1500))
        << "would be 2 seconds at least";
}

TEST(LinkByHand, WhatWasNotAcknowledgedIsSentAgain) {
    HandBroker broker;
    CloudDevice device(broker.settings(), "SN1");
    broker.let_in();
    device.client.upload("up/alarm", "first");
    EXPECT_TRUE(broker.next_on("norvex/v1/SN1/up/alarm").body.ends_with("first"));
    device.client.upload("up/alarm", "second");
    EXPECT_TRUE(broker.next_on("norvex/v1/SN1/up/alarm").body.ends_with("second"));
    broker.hang_up();
    broker.let_in();
    for (const char *text : {"first", "second"}) {
        EXPECT_TRUE(broker.next_on("norvex/v1/SN1/up/alarm").body.ends_with(text));
    }
}

TEST(LinkByHand, AMessageThatTheSocketDoesNotTakeAtOnceArrivesWhole) {
    HandBroker broker;
    nxapi::Settings settings = broker.settings();
    settings.queue_bytes = 32 << 20;
    CloudDevice device(settings, "SN1");
    broker.let_in();
    EXPECT_EQ(broker.next_on("norvex/v1/SN1/up/identity").type, HandBroker::publish);
    const std::string large(16 << 20, 'x');
    device.client.upload("up/config", large);
    EXPECT_TRUE(broker.next_on("norvex/v1/SN1/up/config").body.ends_with(large));
}

TEST(LinkByHand, AnIdleLinkIsKeptAliveAndASilentBrokerIsLeft) {
    HandBroker broker;
    ::testing::internal::CaptureStderr();
    {
        CloudDevice device(broker.settings(), "SN1");
        const std::string two_seconds("\x13\0\2", 3);  // server keep alive
        broker.let_in(two_seconds);
        broker.next_on("norvex/v1/SN1/up/identity");
        const auto idle_since = test::Clock::now();
        EXPECT_EQ(broker.next().type, HandBroker::pingreq);
        EXPECT_LT(test::Clock::now() - idle_since, std::chrono::seconds(3))
            << "the broker would close the connection";
        EXPECT_EQ(broker.next().type, HandBroker::end);
        EXPECT_LT(test::Clock::now() - idle_since, std::chrono::seconds(6));
        eventually([&] { return !device.client.is_up(); });
    }
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("(the broker no longer answers)"));
}

TEST(LinkByHand, AnOldSerialIsLeftAlthoughNothingIsAcknowledged) {
    HandBroker broker;
    CloudDevice device(broker.settings(), "SN1");
    const auto rename = [&](const char *serial) {
        strcpy(device.info.serial, serial);
        device.client.introduce(device.info);
    };
    broker.let_in();
    device.client.upload("up/alarm", "{}");
    broker.next_on("norvex/v1/SN1/up/alarm");
    rename("SN2");
    EXPECT_EQ(broker.next(HandBroker::disconnect).type, HandBroker::disconnect);
    // Nor does it wait for an answer to its CONNECT.
    broker.accept();
    EXPECT_NE(broker.next().body.find("SN2"), std::string::npos);
    const auto start = test::Clock::now();
    rename("SN3");
    EXPECT_EQ(broker.next().type, HandBroker::end);
    EXPECT_LT(test::Clock::now() - start, std::chrono::seconds(8)) << "it would wait for ten";
    EXPECT_NE(broker.let_in().body.find("SN3"), std::string::npos);
}

TEST(LinkByHand, GivesUpOnABrokerThatNeverAnswers) {
    HandBroker broker;
    nxapi::Settings settings = broker.settings();
    settings.retry_ms = 10;
    settings.connect_timeout_ms = 50;
    settings.client_id = "device-7";
    ::testing::internal::CaptureStderr();
    {
        CloudDevice device(settings, "SN1");
        for (int attempt = 0; attempt < 4; ++attempt) {
            broker.accept();
            EXPECT_NE(broker.next().body.find("device-7"), std::string::npos);
            EXPECT_EQ(broker.next().type, HandBroker::end);
        }
        EXPECT_FALSE(device.client.is_up());
    }
    const std::string said = ::testing::internal::GetCapturedStderr();
    const size_t told = said.find("(the broker does not answer)");
    EXPECT_NE(told, said.npos);
    EXPECT_EQ(told, said.rfind("(the broker does not answer)")) << "each reason once";
}

}  // namespace

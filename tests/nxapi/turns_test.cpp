/**
 * Who reads the connection: the main thread as a rule, the network thread while a
 * command keeps the main thread.
 */
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <atomic>
#include <thread>

#include "tests/nxapi/hand_broker.h"

namespace {

using test::CloudDevice;
using test::Console;
using test::eventually;
using test::HandBroker;
using ::testing::Each;
using ::testing::HasSubstr;

constexpr const char *response = "norvex/v1/SN1/rsp/cloud/0";

/** Waits in its callback until the test lets it go on. */
struct Gatekeeper {
    std::atomic<bool> entered{false};
    std::atomic<bool> opened{false};

    static int command(void *, int, const char *, char **, int *, void *self) {
        auto &keeper = *static_cast<Gatekeeper *>(self);
        keeper.entered = true;
        while (!keeper.opened) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return -1;
    }
};

/** A device whose main thread a command keeps, from `keep` to `let_go`. */
class Busy : public ::testing::Test {
  protected:
    Busy() {
        device.serve(0, test::echo_command);
        device.serve(1, Gatekeeper::command, &keeper);
        main_thread = std::thread([this] {
            while (!ends) {
                device.work(20);
            }
        });
        hear("norvex/v1/SN1/up/identity", 1);
        keep();
    }
    ~Busy() override {
        let_go();
        ends = true;
        main_thread.join();
    }

    void keep() {
        keeper.entered = false;
        keeper.opened = false;
        console.publish("norvex/v1/SN1/cmd/cloud/1", "");
        EXPECT_TRUE(eventually([&] {
            console.loop();
            return keeper.entered.load();
        }));
    }
    void let_go() { keeper.opened = true; }

    bool hear(const std::string &topic, size_t count) {
        return eventually([&] {
            console.loop();
            return console.on(topic).size() >= count;
        });
    }

    static nxapi::Settings settings_for(const test::Broker &broker) {
        nxapi::Settings settings = test::settings_for(broker);
        settings.queue_bytes = 8 << 20;  // all responses, come what may
        return settings;
    }

    test::Broker broker;
    Console console{broker};
    CloudDevice device{settings_for(broker), "SN1"};
    Gatekeeper keeper;
    std::atomic<bool> ends{false};
    std::thread main_thread;
};

TEST_F(Busy, CommandsWaitInTheirOrderAndTheSurplusIsRefusedAtOnce) {
    struct Row {
        size_t request, below_responses, correlation;
        size_t fit;
    };
    const Row rows[] = {
        {0, 0, 0, nxapi::Inbox::most_commands},
        {1 << 20, 0, 0, 3},  // of the 4 MiB their targets take a little
        {0, 60'000, 0, 69},
        {0, 0, 60'000, 69},
    };
    constexpr size_t surplus = 5;
    ::testing::internal::CaptureStderr();
    for (const Row &row : rows) {
        const std::string topic =
            "norvex/v1/SN1/rsp/" +
            (row.below_responses == 0 ? "cloud/0" : std::string(row.below_responses, 'x'));
        const auto request = [&](size_t n) {
            return std::to_string(n) + std::string(row.request, 'x');
        };
        for (size_t n = 0; n < row.fit + surplus; ++n) {
            console.publish("norvex/v1/SN1/cmd/cloud/0", request(n), topic,
                            std::string(row.correlation, 'x'));
        }
        ASSERT_TRUE(hear(topic, surplus));
        EXPECT_THAT(console.on(topic), Each(""));
        EXPECT_EQ(console.last(topic).result, "-1");
        console.received.clear();
        let_go();
        ASSERT_TRUE(hear(topic, row.fit));
        for (size_t n = 0; n < row.fit; ++n) {
            EXPECT_EQ(console.on(topic)[n], "<" + request(n) + ">");
        }
        console.received.clear();
        keep();
    }
    // What could never wait stays with the broker, and nothing of it is held here.
    let_go();
    console.publish("norvex/v1/SN1/cmd/cloud/0", std::string(nxapi::Inbox::most_bytes, 'x'));
    console.publish("norvex/v1/SN1/cmd/cloud/0", "last");
    ASSERT_TRUE(hear(response, 1));
    EXPECT_EQ(console.last(response).payload, "<last>");
    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                HasSubstr("commands are refused, since too many wait: "));
}

TEST_F(Busy, UploadsOfOtherThreadsGetThrough) {
    // More than may be on their way at once: the broker's acknowledgements must be read.
    constexpr size_t count = 100;
    for (size_t n = 0; n < count; ++n) {
        EXPECT_TRUE(device.client.upload("up/alarm", std::to_string(n)));
    }
    ASSERT_TRUE(hear("norvex/v1/SN1/up/alarm", count));
    EXPECT_EQ(console.on("norvex/v1/SN1/up/alarm")[count - 1], std::to_string(count - 1));
}

TEST_F(Busy, TheEndOfTheConnectionIsSeenAndTheNextOneMade) {
    broker.stop(SIGKILL);
    ASSERT_TRUE(eventually([&] { return !device.client.is_up(); }));
    broker.start();
    ASSERT_TRUE(eventually([&] { return device.client.is_up(); }));
    Console back(broker);
    back.publish("norvex/v1/SN1/cmd/cloud/0", "again");
    let_go();
    EXPECT_TRUE(eventually([&] {
        back.loop();
        return !back.on(response).empty();
    }));
}

bool is_readable(int fd, int wait_ms) {
    pollfd ready{fd, POLLIN, 0};
    return poll(&ready, 1, wait_ms) > 0;
}

/** A device on a broker by hand, whose main thread has been here. */
class Turns : public ::testing::Test {
  protected:
    void meet() {
        broker.let_in();
        EXPECT_TRUE(eventually([&] {
            device.work(20);
            return device.client.is_up();
        }));
    }
    bool loses() {
        return eventually([&] {
            device.work(20);
            return !device.client.is_up();
        });
    }

    HandBroker broker;
    CloudDevice device{broker.settings(), "SN1"};
};

TEST_F(Turns, TheMainThreadSeesEachKindOfEnd) {
    meet();
    shutdown(broker.fd(), SHUT_WR);
    EXPECT_TRUE(loses());
    meet();
    broker.reset();
    EXPECT_TRUE(loses());
}

TEST_F(Turns, ALostConnectionCallsNobodyThoughAChildHoldsItsSocket) {
    meet();
    const pid_t child = fork();  // holds every descriptor, like one on its way to a program
    if (child == 0) {
        close(broker.fd());
        pause();
        _exit(0);
    }
    broker.reset();
    EXPECT_TRUE(loses());
    // The number of the socket may be anybody's now.
    const int other = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    EXPECT_FALSE(is_readable(device.client.fd(), 100)) << "the loop would spin";
    close(other);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST_F(Turns, ALinkLivesThoughTheMainThreadNeverComesAgain) {
    broker.let_in({"\x13\0\1", 3});  // the broker wants to hear something each second
    eventually([&] {
        device.work(20);
        return device.client.is_up();
    });
    for (int pings = 0; pings < 3; ++pings) {
        ASSERT_EQ(broker.next(HandBroker::pingreq).type, HandBroker::pingreq);
        broker.answer(0xd0, "");
    }
    EXPECT_TRUE(device.client.is_up());
}

}  // namespace

/**
 * Virtual time: who sleeps wakes at its own moment, one at a time, in order.
 */
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <thread>

#include "tests/support/support.h"
#include "virtual/device/device.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class ManualClock : public test::Device {};

/** What threads of the agent wrote down, with the device's time. */
struct Diary {
    std::mutex mutex;
    std::vector<std::string> lines;

    void write(const std::string &who) {
        const std::lock_guard lock(mutex);
        lines.push_back(who + "@" + std::to_string(std::lround(vap::uptime())));
    }
};

/** A thread as the agent makes them: sleeps and writes, some times, then ends. */
struct Worker {
    Diary *diary;
    std::string name;
    unsigned int pause;
    int rounds;
};

void *work(void *data) {
    pthread_detach(pthread_self());
    const std::unique_ptr<Worker> self(static_cast<Worker *>(data));
    self->diary->write(self->name);
    for (int round = 0; round < self->rounds; ++round) {
        sleep(self->pause);
        self->diary->write(self->name);
    }
    return nullptr;
}

void start(Diary &diary, const char *name, unsigned int pause, int rounds) {
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, work, new Worker{&diary, name, pause, rounds}), 0);
}

std::vector<std::string> run_three(const std::filesystem::path &folder) {
    vap::open_device(folder, {.time = vap::Time::manual, .restarts_process = false});
    Diary diary;
    start(diary, "a", 3, 3);
    start(diary, "b", 2, 4);
    start(diary, "c", 6, 1);
    vap::advance(5);
    vap::advance(5);
    vap::close_device();
    return diary.lines;
}

TEST(Clock, WakesSleepersAtTheirOwnMomentsInOrder) {
    const test::TempFolder folder;
    vap::create_device(folder.path() / "ap", {});
    const std::vector<std::string> lines = run_three(folder.path() / "ap");
    // At 6 three threads are due: first who went to sleep first.
    EXPECT_THAT(lines, ElementsAre("a@0", "b@0", "c@0", "b@2", "a@3", "b@4", "c@6", "a@6", "b@6",
                                   "b@8", "a@9"));
    for (int again = 0; again < 20; ++again) {
        ASSERT_EQ(run_three(folder.path() / "ap"), lines);
    }
}

TEST_F(ManualClock, MainThreadSleepsByMovingTheClock) {
    Diary diary;
    start(diary, "worker", 4, 2);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(sleep(10), 0u);
    EXPECT_EQ(usleep(500'000), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
    EXPECT_DOUBLE_EQ(vap::uptime(), 10.5);
    EXPECT_THAT(diary.lines, ElementsAre("worker@0", "worker@4", "worker@8"));
}

TEST_F(ManualClock, ThreadsStartWhenTheTestLetsThem) {
    Diary diary;
    start(diary, "first", 1, 0);
    start(diary, "second", 1, 0);
    EXPECT_TRUE(diary.lines.empty());
    vap::settle();
    EXPECT_THAT(diary.lines, ElementsAre("first@0", "second@0"));
    EXPECT_DOUBLE_EQ(vap::uptime(), 0);
}

TEST(Clock, SleepersOfAClosedDeviceStayWhereTheyAre) {
    const test::TempFolder folder;
    vap::create_device(folder.path() / "ap", {});
    Diary diary;
    const vap::Options options{.time = vap::Time::manual, .restarts_process = false};
    vap::open_device(folder.path() / "ap", options);
    start(diary, "asleep", 5, 100);
    vap::settle();
    start(diary, "unborn", 5, 100);
    vap::close_device();
    vap::open_device(folder.path() / "ap", options);
    vap::advance(1000);
    vap::close_device();
    EXPECT_THAT(diary.lines, ElementsAre("asleep@0"));
}

TEST_F(ManualClock, SetClockMovesOnlyTheClock) {
    vap::advance(7);
    const timeval value{2'000'000'000, 0};
    EXPECT_EQ(settimeofday(&value, nullptr), 0);
    vap::advance(3);
    time_t stored = 0;
    EXPECT_EQ(time(&stored), 2'000'000'003);
    EXPECT_EQ(stored, 2'000'000'003);
    EXPECT_DOUBLE_EQ(vap::uptime(), 10);
    EXPECT_THAT(effects(), ElementsAre("settimeofday 2000000000 0"));
    for (const timeval odd : {timeval{-1, 0}, timeval{0, -1}, timeval{0, 1'000'000}}) {
        EXPECT_EQ(settimeofday(&odd, nullptr), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(time(nullptr), 2'000'000'003);
}

TEST_F(ManualClock, ThreadsOfTheTestAreNobodysWork) {
    std::atomic<bool> stop = false;
    std::thread server([&] {
        while (!stop) {
            std::this_thread::sleep_for(1ms);
        }
    });
    vap::advance(100);  // would wait for ever if the server counted
    stop = true;
    server.join();
}

TEST(Clock, PassesWithTheSpeedOfARealDevice) {
    const test::TempFolder folder;
    vap::create_device(folder.path() / "ap", {});
    vap::open_device(folder.path() / "ap", {.speed = 100, .restarts_process = false});
    const time_t machine = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(machine), 2000);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(sleep(20), 0u);
    const auto took = std::chrono::steady_clock::now() - before;
    EXPECT_GE(took, 200ms);
    EXPECT_LT(took, 15s);
    EXPECT_GE(vap::uptime(), 20);
    Diary diary;
    start(diary, "beat", 1'000'000, 1);
    vap::close_device();
    EXPECT_THAT(diary.lines, testing::SizeIs(1));
    vap::open_device(folder.path() / "ap", {.speed = 1e15, .restarts_process = false});
    EXPECT_DOUBLE_EQ(vap::uptime(), 3.2e9) << "a clock that races stops after a century";
    vap::close_device();
}

}  // namespace

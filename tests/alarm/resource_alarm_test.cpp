#include <sys/time.h>

#include <ctime>

#include "alarm/alarm.h"
#include "tests/support/support.h"

namespace {

constexpr int beat = 15;  // seconds

class ResourceAlarm : public test::Device {
  protected:
    /** The agent remembers its last alarms as long as the process lives: each
     *  test begins long after them, with a calm beat. */
    ResourceAlarm() {
        static int days = 0;
        days += 10;
        vap::advance(days * 86400.0);
        use(0, 0);
        api_alarm_upload();
    }

    static void use(int cpu, int rom) {
        vap::patch_hardware({{"system", {{"cpu", cpu}, {"rom", rom}}}});
    }

    size_t alarms() { return uploads("nx_api_alarm_upload").size(); }

    /** One beat for each sample of the processor; the beats, from 1, that raised
     *  an alarm. */
    std::vector<int> cpu_alarms(const std::vector<int> &samples) {
        std::vector<int> beats;
        size_t before = alarms();
        for (size_t i = 0; i < samples.size(); ++i) {
            if (i == 0 || samples[i] != samples[i - 1]) {
                use(samples[i], 0);
            }
            vap::advance(beat);
            EXPECT_EQ(api_alarm_upload(), 0);
            if (alarms() > before) {
                beats.push_back(static_cast<int>(i) + 1);
                before = alarms();
            }
        }
        return beats;
    }
};

/** `pattern` again and again, `count` samples in all. */
std::vector<int> repeat(const std::vector<int> &pattern, size_t count) {
    std::vector<int> samples(count);
    for (size_t i = 0; i < count; ++i) {
        samples[i] = pattern[i % pattern.size()];
    }
    return samples;
}

std::vector<int> join(std::vector<int> first, const std::vector<int> &then) {
    first.insert(first.end(), then.begin(), then.end());
    return first;
}

TEST_F(ResourceAlarm, CountsBusyBeatsOfTheProcessor) {
    const struct {
        const char *why;
        std::vector<int> samples;
        std::vector<int> beats;
    } rows[] = {
        {"eight beats are not enough", repeat({95}, 8), {}},
        {"the ninth is", repeat({91}, 9), {9}},
        {"90 does not end a spell: the ninth busy beat is the 17th", repeat({95, 90}, 20), {17}},
        {"89 ends it", repeat({95, 89}, 40), {}},
        {"a dip starts the count anew", join(join(repeat({99}, 8), {89}), repeat({99}, 8)), {}},
        {"again after more than 600 seconds: 41 beats", repeat({95}, 100), {9, 50, 91}},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(cpu_alarms(row.samples), row.beats) << row.why;
        vap::advance(1000);
        use(0, 0);
        api_alarm_upload();
    }
}

TEST_F(ResourceAlarm, RaisesTheMemoryAlarmAtOnceAndWaitsForTheNext) {
    const auto alarms_after = [&](double seconds) {
        const timeval moment{.tv_sec = static_cast<time_t>(seconds) + time(nullptr), .tv_usec = 0};
        EXPECT_EQ(settimeofday(&moment, nullptr), 0);
        EXPECT_EQ(api_alarm_upload(), 0);
        return alarms();
    };
    use(0, 90);
    EXPECT_EQ(alarms_after(0), 0U);
    use(0, 91);
    EXPECT_EQ(alarms_after(0), 1U);
    EXPECT_EQ(alarms_after(600), 1U) << "600 seconds are not more than 600";
    EXPECT_EQ(alarms_after(1), 2U);
    EXPECT_EQ(alarms_after(-600), 2U) << "a clock that is set back";
    EXPECT_EQ(alarms_after(-1), 3U);
    refuse("nx_api_alarm_upload");
    vap::advance(1000);
    EXPECT_EQ(api_alarm_upload(), -1);
    EXPECT_EQ(alarms_after(600), 4U) << "what was refused is lost, the next one waits";
    vap::fail("systool_sys_status_get");
    EXPECT_EQ(alarms_after(1000), 4U) << "a sample that cannot be taken is a calm one";
}

TEST_F(ResourceAlarm, TellsBothResourcesInOneDocument) {
    set("sys.timezone", "20");
    cpu_alarms(repeat({95}, 8));
    use(97, 93);
    const std::string stamp = std::to_string(time(nullptr) - 8 * 3600);
    EXPECT_EQ(api_alarm_upload(), 0);
    const auto sent = uploads("nx_api_alarm_upload");
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].data, "{\n\t\"alarm\":\t[{\n\t\t\t\"timestamp\":\t" + stamp +
                                ",\n\t\t\t\"event\":\t\"CPU uses of the device is 97%\"\n"
                                "\t\t}, {\n\t\t\t\"timestamp\":\t" +
                                stamp +
                                ",\n\t\t\t\"event\":\t\"ROM uses of the device is 93%\"\n"
                                "\t\t}]\n}");
    expect_whole_or_nothing(
        [] {
            vap::advance(1000);
            return api_alarm_upload();
        },
        "nx_api_alarm_upload");
}

}  // namespace

#include <sys/time.h>

#include <ctime>
#include <fstream>

#include "alarm/alarm.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

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
        {"90 does not count", repeat({90}, 30), {}},
        {"90 does not end a spell: the ninth busy beat is the 17th", repeat({95, 90}, 20), {17}},
        {"89 ends it", repeat({95, 89}, 40), {}},
        {"a dip starts the count anew", join(join(repeat({99}, 8), {89}), repeat({99}, 8)), {}},
        {"again after more than 600 seconds: 41 beats", repeat({95}, 100), {9, 50, 91}},
        {"the spell goes on after an alarm", join(repeat({95}, 49), {90, 95}), {9, 51}},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(cpu_alarms(row.samples), row.beats) << row.why;
        vap::advance(1000);
        use(0, 0);
        api_alarm_upload();
    }
}

TEST_F(ResourceAlarm, RaisesTheMemoryAlarmAtOnce) {
    use(0, 90);
    EXPECT_EQ(api_alarm_upload(), 0);
    EXPECT_EQ(alarms(), 0U);
    use(0, 91);
    EXPECT_EQ(api_alarm_upload(), 0);
    EXPECT_EQ(alarms(), 1U);
    vap::advance(600);
    api_alarm_upload();
    EXPECT_EQ(alarms(), 1U) << "600 seconds are not more than 600";
    vap::advance(1);
    api_alarm_upload();
    EXPECT_EQ(alarms(), 2U);
}

TEST_F(ResourceAlarm, ComparesTimesBothWays) {
    const auto set_back = [](time_t seconds) {
        const timeval moment{.tv_sec = time(nullptr) - seconds, .tv_usec = 0};
        ASSERT_EQ(settimeofday(&moment, nullptr), 0);
    };
    use(0, 95);
    api_alarm_upload();
    set_back(600);
    api_alarm_upload();
    EXPECT_EQ(alarms(), 1U);
    set_back(1);
    api_alarm_upload();
    EXPECT_EQ(alarms(), 2U);
}

TEST_F(ResourceAlarm, TellsBothResourcesInOneDocument) {
    set("sys.timezone", "20");
    for (int i = 0; i < 8; ++i) {
        use(95, 0);
        api_alarm_upload();
    }
    use(97, 93);
    const long stamp = time(nullptr) - 8 * 3600;
    const std::string trace = output_of([] { EXPECT_EQ(api_alarm_upload(), 0); });
    const auto sent = uploads("nx_api_alarm_upload");
    ASSERT_EQ(sent.size(), 1U);
    const std::string stamp_text = std::to_string(stamp);
    EXPECT_EQ(sent[0].data, "{\n\t\"alarm\":\t[{\n\t\t\t\"timestamp\":\t" + stamp_text +
                                ",\n\t\t\t\"event\":\t\"CPU uses of the device is 97%\"\n"
                                "\t\t}, {\n\t\t\t\"timestamp\":\t" +
                                stamp_text +
                                ",\n\t\t\t\"event\":\t\"ROM uses of the device is 93%\"\n"
                                "\t\t}]\n}");
    EXPECT_EQ(sent[0].length, static_cast<int>(sent[0].data.size()));
    EXPECT_THAT(
        trace,
        HasSubstr("] : upload:cpuinfo: 97; usememinfo: 93, report_time:" + stamp_text + "\n"));
}

TEST_F(ResourceAlarm, GoesOnWithoutATimeZone) {
    std::ofstream(vap::folder() / "config") << "sys.targets=all\n";
    set("ap.apname", "ZX-A5V1.0");  // takes the changed file in
    use(0, 95);
    EXPECT_THAT(output_of([] { EXPECT_EQ(api_alarm_upload(), 0); }),
                HasSubstr("] : ERROR get mib sys.timezone value!\n"));
    EXPECT_EQ(alarms(), 1U);
}

TEST_F(ResourceAlarm, LosesARefusedAlarm) {
    refuse("nx_api_alarm_upload");
    use(0, 95);
    EXPECT_THAT(output_of([] { EXPECT_EQ(api_alarm_upload(), -1); }),
                HasSubstr("[api_alarm_upload]["));
    vap::advance(600);
    EXPECT_EQ(api_alarm_upload(), 0);
    EXPECT_EQ(alarms(), 1U) << "the next one waits its 600 seconds";
}

TEST_F(ResourceAlarm, SendsNothingHalf) {
    vap::fail("systool_sys_status_get");
    EXPECT_EQ(api_alarm_upload(), 0) << "a sample that cannot be taken is a calm one";
    use(0, 95);
    int needed = 0;
    for (int failing = 1; needed == 0; ++failing) {
        vap::advance(1000);
        const size_t before = alarms();
        const test::JsonAllocations memory(failing);
        const int result = api_alarm_upload();
        EXPECT_EQ(test::JsonAllocations::live(), 0) << "allocation " << failing;
        if (test::JsonAllocations::made() < failing) {
            needed = failing - 1;
        }
        EXPECT_EQ(result, needed == 0 ? -1 : 0) << "allocation " << failing;
        EXPECT_EQ(alarms() - before, needed == 0 ? 0U : 1U) << "allocation " << failing;
    }
    EXPECT_GT(needed, 5);
}

}  // namespace

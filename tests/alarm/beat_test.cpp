#include <sys/time.h>

#include <cmath>
#include <ctime>
#include <numeric>

#include "cloud/identity.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using vap::Json;

/** Alarms and logs of the running beat, by the seconds since start-up. */
class Beat : public test::Device {
  protected:
    Beat() { vap::patch_hardware({{"syslog", log_}}); }

    /** Runs `seconds` with this load and one more log record every hour. */
    void run(int seconds, int cpu, int rom) {
        vap::patch_hardware({{"system", {{"cpu", cpu}, {"rom", rom}}}});
        for (; seconds > 0; seconds -= 3600) {
            vap::advance(std::min(seconds, 3600));
            log_.push_back({{"time", "record " + std::to_string(log_.size())},
                            {"type", 1},
                            {"event", "an hour has gone"}});
            vap::patch_hardware({{"syslog", log_}});
        }
    }

    /** "<second> <resource>..." for each alarm. */
    static std::vector<std::string> alarms() {
        std::vector<std::string> lines;
        for (const auto &[second, document] : sent("nx_api_alarm_upload")) {
            lines.push_back(std::to_string(second));
            for (const Json &alarm : document["alarm"]) {
                lines.back() += " " + alarm["event"].get<std::string>().substr(0, 3);
            }
        }
        return lines;
    }

    /** Number of records in each log that was sent. */
    static std::vector<size_t> logs() {
        std::vector<size_t> sizes;
        for (const auto &[second, document] : sent("nx_api_sys_log_upload")) {
            sizes.push_back(document["sys_log"].size());
        }
        return sizes;
    }

  private:
    static std::vector<std::pair<long, Json>> sent(const std::string &call) {
        std::vector<std::pair<long, Json>> found;
        for (const Json &line : vap::journal()) {
            if (line["op"] == call) {
                EXPECT_EQ(line["thread"], "beat");
                found.emplace_back(std::lround(line["time"].get<double>()),
                                   Json::parse(line["args"][0].get<std::string>()));
            }
        }
        return found;
    }

    Json log_ = Json::array();
};

TEST_F(Beat, RunsADayOnChangingLoad) {
    nx_log_upload_init();
    run(7, 20, 60);       // from here on the load changes between two beats
    run(21'600, 20, 60);  // 21607
    run(600, 95, 60);     // busy from 21615: the ninth beat is 21735
    run(7'200, 90, 60);   // the spell holds, but no beat is busy
    run(15, 91, 60);      // 29415
    run(3'600, 89, 60);   // over
    run(1'800, 20, 95);   // 33030, then every 615 seconds
    run(600, 99, 99);     // ROM goes on at 34875; the ninth beat of the processor: 34950
    run(600, 20, 60);
    run(60, 20, 91);  // 36030
    const timeval earlier{.tv_sec = time(nullptr) - 7'200, .tv_usec = 0};
    ASSERT_EQ(settimeofday(&earlier, nullptr), 0);
    run(630, 20, 91);  // at once, 36090, and again at 36705
    run(86'400 - 36'712, 20, 60);

    EXPECT_THAT(alarms(),
                ElementsAre("21735 CPU", "29415 CPU", "33030 ROM", "33645 ROM", "34260 ROM",
                            "34875 ROM", "34950 CPU", "36030 ROM", "36090 ROM", "36705 ROM"));
    std::vector<size_t> one_more_each_hour(30);
    std::iota(one_more_each_hour.begin(), one_more_each_hour.end(), 1U);
    EXPECT_EQ(logs(), one_more_each_hour) << "the last record came after the last beat";
}

}  // namespace

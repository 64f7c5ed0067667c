#include "ops/maintenance.h"

#include "ops/nx_dev_api.h"
#include "ops/set_system_time.h"
#include "report/config_report.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using test::Lines;

class Maintenance : public test::Device {};

TEST_F(Maintenance, SetsKeyByKey) {
    struct Row {
        const char *why;
        const char *maint;
        Lines keys;  // of "sys.schedulereboot."
        bool saved = true;
        const char *stamp = nullptr;
    } const rows[] = {
        {"every day, at the usual time",
         R"({"mainetmode":1,"schedule_reboot":{"repeat_day":[1,1,1,1,1,1,1]}})",
         {"wday 11111111", "enable 1", "type 1", "start_time 03:00"}},
        {"days that are missing, and what is no number, are off",
         R"({"mainetmode":1,"schedule_reboot":{"start_time":"04:30","repeat_day":[1,"1",1,null,1.9]}})",
         {"wday 01010100", "enable 1", "type 1", "start_time 04:30"}},
        {"flags keep their number; every day when 1 is all that they share",
         R"({"mainetmode":1,"schedule_reboot":{"start_time":5,"repeat_day":[3,1,3,5,7,9,-1]}})",
         {"wday 1313579-1", "enable 1", "type 1", "start_time 03:00"}},
        {"3 is shared: not every day",
         R"({"mainetmode":1,"schedule_reboot":{"repeat_day":[3,3,3,3,3,3,3]}})",
         {"wday 03333333", "enable 1", "type 1", "start_time 03:00"}},
        {"the longest flags, and days beyond the seventh",
         R"({"mainetmode":1,"schedule_reboot":{"repeat_day":[-2147483648,-2147483648,-2147483648,
            -2147483648,-2147483648,-2147483648,-2147483648,1,1]}})",
         {"wday 0-2147483648-2147483648-2147483648-2147483648-2147483648-2147483648-2147483648",
          "enable 1", "type 1", "start_time 03:00"}},
        {"no array of days: nothing is set, and yet saved",
         R"({"mainetmode":1,"schedule_reboot":{"start_time":"04:30","repeat_day":"1111111"}})",
         {}},
        {"no schedule", R"({"mainetmode":1,"cycle_restart":{"timeval":5}})", {}},
        {"an interval",
         R"({"mainetmode":2,"cycle_restart":{"timeval":-1},"timestamp":5})",
         {"enable 1", "type 0", "interval -1"},
         true,
         "5"},
        {"no number is 0",
         R"({"mainetmode":2,"cycle_restart":{"timeval":"720"}})",
         {"enable 1", "type 0", "interval 0"}},
        {"no cycle", R"({"mainetmode":2,"cycle_restart":null})", {}},
        {"off", R"({"mainetmode":0})", {"enable 0"}},
        {"a stamp must be above 0", R"({"mainetmode":0,"timestamp":0})", {"enable 0"}},
        {"a stamp must be above 0", R"({"mainetmode":0,"timestamp":-5})", {"enable 0"}},
        {"an unknown mode saves nothing", R"({"mainetmode":7,"timestamp":5})", {}, false, "5"},
        {"nor does a missing one", "{}", {}, false},
    };
    for (const Row &row : rows) {
        Lines expected;
        if (row.stamp != nullptr) {
            expected.push_back(std::string("SetValue nx.maint_timestamp ") + row.stamp);
        }
        for (const std::string &key : row.keys) {
            expected.push_back("SetValue sys.schedulereboot." + key);
        }
        for (const bool commanded : {true, false}) {
            Lines lines = expected;
            if (row.saved) {
                lines.insert(lines.end(), {"CommitCfm", commanded ? "send_msg_to_netctrl 32 null"
                                                                  : "send_msg_to_netctrl 32 op=3"});
            }
            EXPECT_EQ(
                commanded ? verdict(auto_maint, row.maint) : parse(config_maint_parse, row.maint),
                0);
            EXPECT_THAT(effects(), ElementsAreArray(lines)) << row.why;
        }
    }
}

TEST_F(Maintenance, NotifiesNobodyOfWhatWasNotSaved) {
    EXPECT_EQ(parse(mainet_schedule_reboot_parse, "{}"), -1);
    vap::fail("CommitCfm");
    EXPECT_EQ(verdict(auto_maint, R"({"mainetmode":0})"), 0);
    EXPECT_THAT(effects({"CommitCfm", "send_msg_to_netctrl"}), ElementsAre("CommitCfm"));
}

TEST_F(Maintenance, ReportsWhatWasSet) {
    for (const char *const maint : {
             R"({"mainetmode":1,"timestamp":7,"close_reboot":1,
                 "schedule_reboot":{"start_time":"04:30","repeat_day":[0,1,0,1,0,0,1]}})",
             R"({"mainetmode":2,"timestamp":8,"close_reboot":1,"cycle_restart":{"timeval":720}})",
         }) {
        call(auto_maint, maint);
        cJSON *told = cJSON_CreateObject();
        EXPECT_EQ(maint_data_get(told), 0);
        cJSON *set = cJSON_Parse(maint);
        EXPECT_TRUE(cJSON_Compare(told, set, true)) << maint;
        cJSON_Delete(told);
        cJSON_Delete(set);
    }
}

TEST_F(Maintenance, SetsTheClock) {
    const Lines rest{"SetValue sys.timesyn 0", "doSystemCmd rm -rf /var/network_check_result.cfg",
                     "CommitCfm", "send_msg_to_netctrl 24 op=2"};
    write_file("/var/network_check_result.cfg", "old");
    EXPECT_EQ(set_system_time(10), 0) << "too early: all but the clock";
    EXPECT_THAT(effects(), ElementsAreArray(rest));
    EXPECT_FALSE(std::filesystem::exists(vap::folder() / "root/var/network_check_result.cfg"));

    EXPECT_EQ(set_system_time(11), 0);
    Lines lines = effects();
    EXPECT_EQ(lines.front(), "settimeofday 11 0");
    lines.erase(lines.begin());
    EXPECT_THAT(lines, ElementsAreArray(rest));

    vap::fail("settimeofday");
    EXPECT_THAT(output_of([] { EXPECT_EQ(set_system_time(1'700'000'000), -1); }),
                HasSubstr("] : Set   system   datatime   error!\n"));
    EXPECT_THAT(effects(), ElementsAre("settimeofday 1700000000 0"));
    vap::fail("CommitCfm");
    EXPECT_EQ(set_system_time(0), 0);
    EXPECT_THAT(effects({"send_msg_to_netctrl"}), IsEmpty());
}

}  // namespace

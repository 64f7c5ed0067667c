#include "alarm/alarm.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using vap::Json;

class SysLog : public test::Device {
  protected:
    /** Times differ from test to test, since the agent remembers the newest as
     *  long as the process lives. */
    SysLog() : day_(++days) {}

    std::string time_of(int record) const {
        return "day " + std::to_string(day_) + " " + std::to_string(record);
    }

    Json record(int number, int type = 1) const {
        return {{"time", time_of(number)},
                {"type", type},
                {"event", "event " + std::to_string(number)}};
    }

    /** A log of records `first` to `last`. */
    void log(int first, int last) const {
        Json list = Json::array();
        for (int i = first; i <= last; ++i) {
            list.push_back(record(i));
        }
        vap::patch_hardware({{"syslog", list}});
    }

    /** Events of each document sent since the last look. */
    std::vector<std::vector<std::string>> sent() {
        std::vector<std::vector<std::string>> documents;
        const auto all = uploads("nx_api_sys_log_upload");
        for (; seen_ < all.size(); ++seen_) {
            const Json document = Json::parse(all[seen_].data);
            documents.emplace_back();
            for (const Json &entry : document["sys_log"]) {
                documents.back().push_back(entry["event"]);
            }
        }
        return documents;
    }

  private:
    static inline int days = 0;
    int day_;
    size_t seen_ = 0;
};

TEST_F(SysLog, NamesTheTypeOfEachRecord) {
    Json list = Json::array();
    for (int type = -1; type <= 10; ++type) {
        list.push_back(record(type, type));
    }
    vap::patch_hardware({{"syslog", list}});
    EXPECT_EQ(sys_log_upload(), 0);
    const auto sent = uploads("nx_api_sys_log_upload");
    ASSERT_EQ(sent.size(), 1U);
    const Json document = Json::parse(sent[0].data);
    std::vector<std::string> lines;
    for (const Json &entry : document["sys_log"]) {
        lines.push_back(entry.dump());
    }
    const auto line = [&](int type, const char *name) {
        return R"({"event":"event )" + std::to_string(type) + R"(","time":")" + time_of(type) +
               R"(","event_type":")" + name + "\"}";
    };
    EXPECT_THAT(
        lines, ElementsAre(line(1, "System"), line(2, "Web Filter"), line(3, "WAN"), line(4, "WAN"),
                           line(5, "WAN"), line(6, "WAN"), line(8, "LAN DHCP")));
    EXPECT_EQ(sent[0].length, static_cast<int>(sent[0].data.size()));
}

TEST_F(SysLog, SendsAListOnce) {
    log(1, 2);
    sys_log_upload();
    EXPECT_THAT(sent(), ElementsAre(ElementsAre("event 1", "event 2")));
    sys_log_upload();
    EXPECT_THAT(sent(), IsEmpty());
    log(2, 3);
    sys_log_upload();
    EXPECT_THAT(sent(), ElementsAre(ElementsAre("event 2", "event 3")))
        << "a new newest record sends the whole list";
    log(3, 3);
    sys_log_upload();
    EXPECT_THAT(sent(), IsEmpty()) << "only the newest record is looked at";
}

TEST_F(SysLog, SendsTheNewestRecordsUpToTheLimit) {
    const struct {
        const char *limit;
        std::vector<std::string> events;
    } rows[] = {
        {"5", {"event 7", "event 8", "event 9", "event 10", "event 11"}},
        {"1", {"event 11"}},
        {"0", {}},  // an empty list still goes out
        {"-2147483648", {}},
        {"many", {}},
    };
    for (const auto &row : rows) {
        set("nx.sys.logsnum", row.limit);
        Json list = Json::array();
        for (int i = 0; i < 12; ++i) {
            list.push_back(record(i));
        }
        list.back()["time"] = time_of(0) + " limit " + row.limit;
        vap::patch_hardware({{"syslog", list}});
        EXPECT_EQ(sys_log_upload(), 0);
        EXPECT_THAT(sent(), ElementsAre(row.events)) << row.limit;
    }
}

TEST_F(SysLog, ReadsTheNewestThreeHundredRecords) {
    for (const int newest : {400, 401}) {
        log(1, newest);
        EXPECT_EQ(sys_log_upload(), 0);
        const auto documents = sent();
        ASSERT_EQ(documents.size(), 1U) << "a record behind a long log is new as any other";
        ASSERT_EQ(documents[0].size(), 300U);
        EXPECT_EQ(documents[0].back(), "event " + std::to_string(newest));
    }
}

TEST_F(SysLog, KeepsTheNewestTimeOverAnEmptyListAndAnError) {
    log(1, 1);
    sys_log_upload();
    EXPECT_EQ(sent().size(), 1U);
    vap::patch_hardware({{"syslog", Json::array()}});
    EXPECT_EQ(sys_log_upload(), 0);
    log(1, 1);
    EXPECT_EQ(sys_log_upload(), 0);
    EXPECT_THAT(sent(), IsEmpty());
    vap::fail("file_syslog_get_lists");
    EXPECT_THAT(output_of([] { EXPECT_EQ(sys_log_upload(), -1); }),
                HasSubstr("] : tpi_syslog_get_lists returns error!\n"));
    EXPECT_EQ(sys_log_upload(), 0);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(SysLog, LosesWhatIsRefused) {
    refuse("nx_api_sys_log_upload");
    log(1, 1);
    EXPECT_THAT(output_of([] { EXPECT_EQ(sys_log_upload(), -1); }),
                HasSubstr("] : nx_api_sys_log_upload err!\n"));
    EXPECT_EQ(sys_log_upload(), 0) << "it is not tried again";
    EXPECT_EQ(sent().size(), 1U);
}

TEST_F(SysLog, SendsNothingHalf) {
    int needed = 0;
    for (int failing = 1; needed == 0; ++failing) {
        log(failing, failing + 2);
        sent();
        const test::JsonAllocations memory(failing);
        const int result = sys_log_upload();
        EXPECT_EQ(test::JsonAllocations::live(), 0) << "allocation " << failing;
        if (test::JsonAllocations::made() < failing) {
            needed = failing - 1;
        }
        EXPECT_EQ(result, needed == 0 ? -1 : 0) << "allocation " << failing;
        EXPECT_EQ(sent().size(), needed == 0 ? 0U : 1U) << "allocation " << failing;
    }
    EXPECT_GT(needed, 20);
}

}  // namespace

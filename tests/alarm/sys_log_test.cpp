#include "alarm/alarm.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
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

    /** A log of records `first` to `last`, of one type or each of its own number's. */
    void log(int first, int last, bool numbers_are_types = false) const {
        Json list = Json::array();
        for (int i = first; i <= last; ++i) {
            list.push_back({{"time", time_of(i)},
                            {"type", numbers_are_types ? i : 1},
                            {"event", "event " + std::to_string(i)}});
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
    log(-1, 10, true);
    EXPECT_EQ(sys_log_upload(), 0);
    const auto uploaded = uploads("nx_api_sys_log_upload");
    ASSERT_EQ(uploaded.size(), 1U);
    const Json entries = Json::parse(uploaded[0].data)["sys_log"];
    const std::pair<int, const char *> types[] = {{1, "System"},  {2, "Web Filter"}, {3, "WAN"},
                                                  {4, "WAN"},     {5, "WAN"},        {6, "WAN"},
                                                  {8, "LAN DHCP"}};
    ASSERT_EQ(entries.size(), std::size(types));
    for (size_t i = 0; i < entries.size(); ++i) {
        const auto &[type, name] = types[i];
        EXPECT_EQ(entries[i].dump(), R"({"event":"event )" + std::to_string(type) +
                                         R"(","time":")" + time_of(type) + R"(","event_type":")" +
                                         name + "\"}");
    }
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
    struct Row {
        const char *limit;
        size_t sent;
    } const rows[] = {
        {"5", 5},           {"1", 1},    {"0", 0},  // an empty list still goes out
        {"-2147483648", 0}, {"many", 0}, {"301", 300},
    };
    int newest = 400;
    for (const Row &row : rows) {
        set("nx.sys.logsnum", row.limit);
        log(1, ++newest);
        EXPECT_EQ(sys_log_upload(), 0);
        const auto documents = sent();
        ASSERT_EQ(documents.size(), 1U) << row.limit;
        ASSERT_EQ(documents[0].size(), row.sent) << row.limit;
        for (size_t i = 0; i < row.sent; ++i) {
            EXPECT_EQ(documents[0][row.sent - 1 - i],
                      "event " + std::to_string(newest - static_cast<int>(i)));
        }
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
    vap::fail("file_syslog_get_lists");
    EXPECT_EQ(sys_log_upload(), -1);
    EXPECT_EQ(sys_log_upload(), 0);
    EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(SysLog, LosesWhatIsRefusedAndSendsNothingHalf) {
    int newest = 2;
    expect_whole_or_nothing(
        [&] {
            log(newest, newest + 2);
            ++newest;
            return sys_log_upload();
        },
        "nx_api_sys_log_upload");
    refuse("nx_api_sys_log_upload");
    log(1, 1);
    EXPECT_EQ(sys_log_upload(), -1);
    EXPECT_EQ(sys_log_upload(), 0) << "it is not tried again";
}

}  // namespace

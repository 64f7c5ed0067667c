#include "net/net_check.h"

#include <set>

#include "builtin.h"
#include "json.h"
#include "net/load_checks.h"
#include "net/net_api.h"
#include "net/reachability.h"
#include "ops/nx_dev_api.h"
#include "tests/net/records.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class NetCheck : public test::Device {
  protected:
    NetCheck() {
        set("ap.apname", "ZX-A5");
        set("lan.gw", "192.0.2.1");
    }

    /** The result lists that were sent. */
    std::vector<test::Lines> results() {
        std::vector<test::Lines> lists;
        for (const nxapi::Upload &upload : uploads("nx_api_net_check_back")) {
            EXPECT_EQ(upload.data.back(), '\0') << "the terminating zero counts";
            lists.push_back(test::records(upload.data));
        }
        return lists;
    }
};

TEST_F(NetCheck, AnswersAtOnceAndSendsItsListLater) {
    ASSERT_EQ(net_api(), 0);
    const nxapi::Answer answer = nxapi::call("net", 4, R"({"any": "thing"})");
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.response, "{\n\t\"resp_code\":\t0\n}");
    vap::settle();
    EXPECT_THAT(results(),
                ElementsAre(ElementsAre("1:0", "2:0", "3:0", "4:0", "5:0", "12:0", "13:0")));
}

TEST_F(NetCheck, TellsWhatIsWrong) {
    const auto lost = vap::Json::array({nullptr});
    vap::patch_hardware(
        {{"ping", {{NX_CLOUD_HOST, {{"replies", lost}}}, {"192.0.2.1", {{"replies", lost}}}}},
         {"ports", {{"1", {{"link", false}}}, {"3", {{"link", false}}}}}});
    EXPECT_EQ(net_check_back(nullptr), nullptr);
    EXPECT_THAT(results(),
                ElementsAre(ElementsAre("1:0", "2:0", "3:0", "4:-1", "5:-1", "12:-1", "13:-1")));
}

TEST_F(NetCheck, StaysSilentWhenNoThreadStarts) {
    vap::fail("pthread_create");
    EXPECT_EQ(verdict(net_check), 0);
    vap::settle();
    EXPECT_THAT(results(), IsEmpty());
}

TEST_F(NetCheck, LeavesACheckOutThatHasNoMemory) {
    vap::fail("popen", 1, -1);  // the commands' own time is not what is tested
    std::set<size_t> sizes;
    test::fail_each_allocation(
        [] { net_check_back(nullptr); },
        [&](bool passed) {
            const auto lists = results();
            const auto has = [&](const char *record) {
                return !lists.empty() && std::ranges::count(lists.back(), record) == 1;
            };
            EXPECT_EQ(has("12:-1"), has("13:-1")) << "both records of the server or none";
            EXPECT_TRUE(!passed || lists.back().size() == 7);
            sizes.insert(lists.empty() ? 0 : lists.back().size());
        });
    EXPECT_THAT(sizes, ElementsAre(0, 5, 6, 7));
    vap::forget_faults();
    for (const auto check : {channel_usage, check_sta_num, check_ping_gate, check_ping_norvex}) {
        int result = 0;
        test::fail_each_allocation(
            [&] {
                const Json list = json_array();
                result = check(list.get());
            },
            [&](bool passed) { EXPECT_EQ(result, passed ? 0 : -1); });
    }
}

TEST_F(NetCheck, RunsBesideAnotherOneAndAReport) {
    ASSERT_EQ(dev_api(), 0);
    call(net_check);
    call(net_check);
    for (const int slot : {0, 1, 19}) {
        EXPECT_EQ(nxapi::call("dev", slot, "{}").result, 0) << slot;
    }
    vap::settle();
    EXPECT_EQ(results().size(), 2U);
}

}  // namespace

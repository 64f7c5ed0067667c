#include "net/net_check.h"

#include "builtin.h"
#include "net/net_api.h"
#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using vap::Json;

class NetCheck : public test::Device {
  protected:
    NetCheck() {
        set("ap.apname", "ZX-A5");
        set("lan.gw", "192.0.2.1");
    }

    /** Sent result lists, each as its texts "type:result". */
    std::vector<std::vector<std::string>> results() {
        std::vector<std::vector<std::string>> lists;
        for (const nxapi::Upload &upload : uploads("nx_api_net_check_back")) {
            lists.emplace_back();
            for (const Json &record : Json::parse(upload.data.c_str())) {
                lists.back().push_back(record["check_type"].dump() + ":" + record["result"].dump());
            }
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
    const auto sent = uploads("nx_api_net_check_back");
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_THAT(sent[0].data,
                ::testing::StartsWith("[{\n\t\t\"check_type\":\t1,\n\t\t\"result\":"));
    EXPECT_EQ(sent[0].data.back(), '\0') << "the terminating zero counts";
    EXPECT_THAT(results()[0], ElementsAre("1:0", "2:0", "3:0", "4:0", "5:0", "12:0", "13:0"));
}

TEST_F(NetCheck, TellsWhatIsWrong) {
    const auto lost = Json::array({nullptr});
    vap::patch_hardware(
        {{"ping", {{NX_CLOUD_HOST, {{"replies", lost}}}, {"192.0.2.1", {{"replies", lost}}}}},
         {"ports", {{"1", {{"link", false}}}, {"3", {{"link", false}}}}}});
    refuse("nx_api_net_check_back");
    EXPECT_THAT(output_of([] { EXPECT_EQ(net_check_back(nullptr), nullptr); }),
                HasSubstr("[net_check_back]["));
    EXPECT_THAT(results(),
                ElementsAre(ElementsAre("1:0", "2:0", "3:0", "4:-1", "5:-1", "12:-1", "13:-1")));
}

TEST_F(NetCheck, StaysSilentWhenNoThreadStarts) {
    vap::fail("pthread_create");
    EXPECT_EQ(call(net_check), "{\n\t\"resp_code\":\t0\n}");
    vap::settle();
    EXPECT_THAT(results(), IsEmpty());
}

TEST_F(NetCheck, SendsAShorterListOrNoneWhenMemoryEnds) {
    vap::fail("popen", 1, -1);  // the commands' own time is not what is tested
    size_t most = 0;
    int failing = 1;
    for (bool whole = false; !whole; ++failing) {
        const size_t before = results().size();
        const test::JsonAllocations memory(failing);
        net_check_back(nullptr);
        whole = test::JsonAllocations::made() < failing;
        EXPECT_EQ(test::JsonAllocations::live(), 0) << "allocation " << failing;
        if (results().size() > before) {
            most = std::max(most, whole ? 0 : results().back().size());
        }
    }
    EXPECT_THAT(results().back().size(), 7U);
    EXPECT_THAT(most, 6U) << "a record that cannot be made is left out";
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

#include "report/uploads.h"

#include <set>

#include "ops/nx_dev_api.h"
#include "report/clients.h"
#include "report/radio.h"
#include "tests/report/rich_device.h"

namespace {

using ::testing::ElementsAre;

class Uploads : public test::ReportDevice {
  protected:
    vap::Json throughput() { return answer(statistic_upload)["throughput"]; }
};

TEST_F(Uploads, CountsTrafficSinceTheReportBefore) {
    EXPECT_EQ(throughput().dump(), R"({"up":"0","down":"0"})");
    EXPECT_EQ(get("flow.up"), "(absent)") << "a count that nobody keeps is not begun";
    set_all({{"flow.up", "1048575"}, {"flow.down", "2048 bytes"}});
    effects();
    EXPECT_EQ(throughput().dump(), R"({"up":"1023","down":"2"})");
    EXPECT_THAT(effects({"SetValue", "CommitCfm"}),
                ElementsAre("SetValue flow.up 0", "SetValue flow.down 0"));
    EXPECT_EQ(throughput().dump(), R"({"up":"0","down":"0"})");
}

TEST_F(Uploads, ServesItsSlotsOfTheDevFamily) {
    ASSERT_EQ(dev_api(), 0);
    EXPECT_EQ(*nxapi::call("dev", 0, "").response, call(status_upload));
    EXPECT_EQ(*nxapi::call("dev", 1, "").response, call(statistic_upload));
    EXPECT_EQ(*nxapi::call("dev", 2, "").response, call(config_upload));
}

using Lists = test::RichDevice;

TEST_F(Lists, EndAtTheFirstObjectThatCannotBeMade) {
    for (int (*const builder)(cJSON *) :
         {rf_rule_get, neighbor_entry_get, ssid_info_get, user_list_get, simple_user_list_get}) {
        const size_t whole = build(builder).json.size();
        std::set<size_t> lengths;
        for (int nth = 1; lengths.count(whole) == 0 || nth < 200; ++nth) {
            const Built built = build([&](cJSON *array) {
                const test::JsonAllocations memory(nth);
                return builder(array);
            });
            EXPECT_EQ(built.result == 0, built.json.size() == whole) << nth;
            lengths.insert(built.json.size());
        }
        EXPECT_EQ(lengths.size(), whole + 1) << "each object was once the one that failed";
    }
}

}  // namespace

#include "report/uploads.h"

#include "ops/nx_dev_api.h"
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

/** Runs a handler with each of its allocations failing in turn. */
template <typename Check>
void sweep(nx_handler handler, Check check) {
    int failing = 0;
    int made = 0;
    do {
        cJSON *response = cJSON_CreateObject();
        int result = 0;
        {
            const test::JsonAllocations allocations(++failing);
            result = handler(nullptr, response);
            made = allocations.made();
        }
        check(result, response);
        cJSON_Delete(response);
    } while (made >= failing);
    EXPECT_GT(failing, 20);
}

TEST_F(Uploads, SurviveEachFailingAllocation) {
    associate({{.mac = "02:00:00:00:00:0a", .online = 100}});
    sweep(status_upload, [](int result, const cJSON *response) {
        // All sections are there, or the answer is -1.
        const bool whole = cJSON_GetArraySize(response) == 4;
        EXPECT_TRUE(result == -1 || whole);
    });
    sweep(statistic_upload, [](int result, const cJSON *response) {
        EXPECT_EQ(result, cJSON_GetArraySize(response) == 4 &&
                                  cJSON_HasObjectItem(response->child, "user_list")
                              ? 0
                              : -1);
    });
    sweep(config_upload, [](int result, const cJSON *response) {
        const bool whole = cJSON_HasObjectItem(response, "wireless") != 0 &&
                           cJSON_HasObjectItem(response, "maint") != 0;
        EXPECT_EQ(result, whole ? 0 : -1);
    });
}

}  // namespace

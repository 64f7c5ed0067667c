/* The whole text of each report, whose order of members the cloud relies on. */
#include "measure/rates.h"
#include "report/radio.h"
#include "report/uploads.h"
#include "tests/report/rich_device.h"

namespace {

class Golden : public test::RichDevice {};

TEST_F(Golden, Status) {
    uint64_t tx = 0;
    uint64_t rx = 0;
    get_eth0_cur_rate(&tx, &rx);  // the report shows the rates since here
    vap::advance(10);
    expect_golden("status_upload", call(status_upload));
}

TEST_F(Golden, Statistic) {
    vap::advance(10);
    expect_golden("statistic_upload", call(statistic_upload));
}

TEST_F(Golden, Configuration) {
    expect_golden("config_upload", call(config_upload));
}

TEST_F(Golden, Neighbours) {
    const Built built = build(neighbor_entry_get);
    EXPECT_EQ(built.result, 0);
    expect_golden("neighbours", built.text);
}

TEST_F(Golden, Bssids) {
    const Built built = build(ssid_info_get);
    EXPECT_EQ(built.result, 0);
    expect_golden("bssids", built.text);
}

}  // namespace

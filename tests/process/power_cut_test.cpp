/**
 * A device that loses its power while it is being configured.
 */
#include "tests/support/power_cut.h"

#include "tests/support/support.h"

namespace {

TEST(PowerCut, LeavesTheOldOrTheNewConfiguration) {
    const test::Broker broker;
    const test::TempFolder folder;
    const auto device = folder.path() / "ap";
    vap::create_device(device, {.serial = "NXT0000000003"});
    std::filesystem::create_directories(device / "root/etc");
    std::ofstream(device / "root/etc/nxapi.conf") << "broker=" << broker.url() << "\n";
    test::PowerCut power(device, "NXT0000000003", NORVEX_RUN_DIR "/norvex", broker);
    for (int i = 0; i < 10; ++i) {
        // Spread over the course of an order, which takes some milliseconds.
        ASSERT_EQ(power.once(std::chrono::microseconds(1700 * i)), "") << "cut " << i;
    }
}

}  // namespace

/**
 * A device that loses its power while it is being configured, or is restored.
 */
#include "tests/support/power_cut.h"

#include "paths.h"
#include "tests/support/broker.h"
#include "virtual/folder/store.h"

namespace {

TEST(PowerCut, LeavesTheOldOrTheNewConfiguration) {
    const test::Broker broker;
    const test::TempFolder folder;
    const auto device = folder.path() / "ap";
    vap::create_device(device, {.serial = "NXT0000000003"});
    std::ofstream(device / "root/etc/nxapi.conf") << "broker=" << broker.url() << "\n";
    test::PowerCut power(device, "NXT0000000003", NORVEX_RUN_DIR "/norvex", broker);
    for (int i = 0; i < 3; ++i) {
        // Spread over the course of an order, which takes some milliseconds.
        ASSERT_EQ(power.once(std::chrono::microseconds(3000 * i)), "") << "cut " << i;
    }
    const auto size = static_cast<size_t>(std::filesystem::file_size(device / "config"));
    for (const auto bytes : {size_t{0}, size / 3, size * 2 / 3, size - 1}) {
        ASSERT_EQ(power.inside_write(bytes), "") << "behind byte " << bytes;
    }
}

/** The last order of a device's life decides; a restore is never undone by a restart. */
TEST(Restart, ARestoreBringsBackTheDefaults) {
    const test::Broker broker;
    const test::TempFolder folder;
    const auto device = folder.path() / "ap";
    vap::create_device(device, {.serial = "NXT0000000004"});
    const auto config = vap::read_file(device / "config");
    vap::Store(device / "config").set_now("lan.ip", "10.0.0.1");
    std::ofstream(device / "root/etc/nxapi.conf") << "broker=" << broker.url() << "\n";
    test::Console console(broker);
    setenv("VAP_DEVICE", device.c_str(), 1);
    test::Child agent({NORVEX_RUN_DIR "/norvex"}, folder.path() / "log");
    const std::string topic = "norvex/v1/NXT0000000004";
    test::eventually([&] {
        console.loop();
        return console.last(topic + "/status").payload.starts_with(R"({"online":true)");
    });
    console.publish(topic + "/cmd/dev/9", "");
    console.publish(topic + "/cmd/dev/5", "");
    test::eventually([&] {
        console.loop();
        return !agent.is_running();
    });
    EXPECT_EQ(WEXITSTATUS(agent.end(SIGKILL)), 75);
    EXPECT_EQ(vap::read_file(device / "config"), config);
}

}  // namespace

#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;

class Locate : public test::Device {};

TEST_F(Locate, ShowsTheDeviceAndGivesTheLedItsModeBack) {
    set("sys.led.status", "3");
    EXPECT_EQ(verdict(dev_locate, R"({"op":-7})"), 0);
    EXPECT_THAT(effects(), ElementsAre("SetValue sys.led.status.orgin 3", "SetValue nx.located 1",
                                       "SetValue sys.led.status 1", "CommitCfm",
                                       "send_msg_to_netctrl 37 null"));
    EXPECT_EQ(verdict(dev_locate, R"({"op":"1"})"), 0) << "a text is no number";
    EXPECT_THAT(effects(), ElementsAre("SetValue sys.led.status 3", "SetValue nx.located 0",
                                       "CommitCfm", "send_msg_to_netctrl 37 null"));
}

TEST_F(Locate, SavesWhatThereIsAndTellsTheLedAlways) {
    call(dev_locate, "{}");
    EXPECT_EQ(get("sys.led.status"), "") << "ended, and never started";
    call(dev_locate, R"({"op":1})");
    effects();
    vap::fail("CommitCfm");
    EXPECT_EQ(verdict(dev_locate, R"({"op":1})"), 0);
    EXPECT_EQ(get("sys.led.status.orgin"), "1") << "started twice";
    EXPECT_THAT(effects({"send_msg_to_netctrl"}), ElementsAre("send_msg_to_netctrl 37 null"))
        << "though nothing was committed";
}

}  // namespace

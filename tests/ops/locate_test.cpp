#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;

class Locate : public test::Device {};

const std::string done = "{\n\t\"resp_code\":\t0\n}";

TEST_F(Locate, ShowsTheDeviceAndGivesTheLedItsModeBack) {
    set("sys.led.status", "3");
    EXPECT_EQ(call(dev_locate, R"({"op":1})"), done);
    EXPECT_THAT(effects(), ElementsAre("SetValue sys.led.status.orgin 3", "SetValue nx.located 1",
                                       "SetValue sys.led.status 1", "CommitCfm",
                                       "send_msg_to_netctrl 37 null"));
    EXPECT_EQ(call(dev_locate, R"({"op":0})"), done);
    EXPECT_THAT(effects(), ElementsAre("SetValue sys.led.status 3", "SetValue nx.located 0",
                                       "CommitCfm", "send_msg_to_netctrl 37 null"));
}

TEST_F(Locate, SavesTheLocateModeItselfWhenStartedTwice) {
    set("sys.led.status", "3");
    call(dev_locate, R"({"op":-7})");
    call(dev_locate, R"({"op":1})");
    EXPECT_EQ(get("sys.led.status.orgin"), "1");
}

TEST_F(Locate, EndsWithoutHavingBeenStarted) {
    set("sys.led.status", "3");
    EXPECT_EQ(call(dev_locate, R"({"op":"1"})"), done) << "a text is no number";
    EXPECT_EQ(get("sys.led.status"), "");
    EXPECT_EQ(get("nx.located"), "0");
}

TEST_F(Locate, TellsTheLedAlsoWhenNothingWasSaved) {
    vap::fail("CommitCfm");
    EXPECT_EQ(call(dev_locate, R"({"op":1})"), done);
    EXPECT_THAT(effects({"send_msg_to_netctrl"}), ElementsAre("send_msg_to_netctrl 37 null"));
}

}  // namespace

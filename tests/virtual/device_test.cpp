/**
 * A device as a whole: new folders, the hardware description, journal, faults.
 */
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "platform/apmib.h"
#include "platform/holymsg.h"
#include "platform/systool.h"
#include "tests/support/support.h"
#include "virtual/device/machine.h"
#include "virtual/folder/hardware.h"
#include "virtual/folder/store.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using vap::Json;

class VirtualAp : public test::Device {};

/** The sentence that a call throws; "" when it does not. */
template <typename Act>
std::string complaint(Act act) {
    try {
        act();
        return "";
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

TEST(NewDevice, RefusesWhatMakesNoDevice) {
    const test::TempFolder folder;
    const auto create = [&](const char *name, const std::string &serial,
                            const std::string &model = "ZX-A5") {
        return complaint([&] { vap::create_device(folder.path() / name, {serial, model}); });
    };
    EXPECT_THAT(create("a", "has blank"), HasSubstr("serial number"));
    EXPECT_THAT(create("a", std::string(33, '1')), HasSubstr("serial number"));
    EXPECT_THAT(create("a", "S1", ""), HasSubstr("model"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "a"));
    EXPECT_EQ(create("a", "S1"), "");
    EXPECT_THAT(create("a", "S2"), HasSubstr("not empty"));
    EXPECT_EQ(create("b", ""), "");
    EXPECT_EQ(create("c", ""), "");
    EXPECT_NE(vap::Store(folder.path() / "b/factory").get("ZQ_ATE_SN"),
              vap::Store(folder.path() / "c/factory").get("ZQ_ATE_SN"));
}

TEST(NewDevice, IsUnboundWithBothRadiosOn) {
    const test::TempFolder folder;
    vap::create_device(folder.path() / "ap", {.serial = "S1", .model = "ZX-A9"});
    vap::Store config(folder.path() / "ap/config");
    EXPECT_EQ(config.get("ap.apname"), "ZX-A9V1.0") << "a version of four characters follows";
    EXPECT_EQ(config.get("wl2g.public.enable"), "1");
    EXPECT_EQ(config.get("wl5g.public.enable"), "1");
    EXPECT_EQ(config.get("wl2g.ssid7.enable"), "0");
    EXPECT_EQ(config.get("wl5g.ssid3.enable"), "0");
    for (const char *key : {"nx.manage.en", "nx.manage.mode", "nx.bind_status", "nx.project.id"}) {
        EXPECT_FALSE(config.get(key)) << key;
    }
}

TEST_F(VirtualAp, BrokenDescriptionIsRefusedAtTheStartAndRiddenOutLater) {
    const std::filesystem::path file = vap::folder() / "hardware.json";
    vap::patch_hardware({{"system", {{"cpu", 77}}}});
    testing::internal::CaptureStderr();  // the watch over the folder may be the first to see it
    std::ofstream(file) << "{ \"system\": ";
    EXPECT_EQ(vap::hardware()["system"]["cpu"], 77);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("stays in use"));
    EXPECT_THAT(complaint([] { vap::patch_hardware({{"x", 1}}); }), HasSubstr("broken"));

    const vap::Options options{.time = vap::Time::manual, .restarts_process = false};
    const std::filesystem::path folder = vap::folder();
    EXPECT_THAT(complaint([&] { vap::open_device(folder, options); }), HasSubstr("hardware.json"));
    const std::string deep = "{\"x\":" + std::string(200'000, '[');
    for (const auto &[text, why] : {std::pair<std::string, const char *>{"[]", "no JSON object"},
                                    {"7", "no JSON object"},
                                    {"", "unexpected end"},
                                    {"\"" + std::string(100'000, 'x') + "\n", "control character"},
                                    {deep, "nested deeper"},
                                    {deep + std::string(200'000, ']') + "}", "nested deeper"}}) {
        testing::internal::CaptureStderr();
        std::ofstream(file) << text;
        const std::string said = complaint([&] { vap::open_device(folder, options); });
        EXPECT_THAT(said, HasSubstr("hardware.json: "));
        EXPECT_LT(said.size(), 500u);
        EXPECT_EQ(vap::hardware()["system"]["cpu"], 77);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(why));
    }
    std::ofstream(file) << "{}";
    EXPECT_EQ(complaint([&] { vap::open_device(folder, options); }), "");
    sys_status status;
    EXPECT_EQ(systool_sys_status_get("ap", &status), 0) << "missing parts have defaults";
}

TEST_F(VirtualAp, ChangedDescriptionIsSeenByTheNextCall) {
    sys_status status;
    const uint64_t before = vap::hardware_generation();
    vap::patch_hardware({{"system", {{"cpu", 97}}}});
    EXPECT_EQ(systool_sys_status_get("ap", &status), 0);
    EXPECT_EQ(status.cpu, 97);
    EXPECT_NE(vap::hardware_generation(), before);

    vap::Hardware(vap::folder() / "hardware.json").patch({{"system", {{"cpu", 3}}}});
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(systool_sys_status_get("ap", &status), 0);
    EXPECT_EQ(status.cpu, 3) << "also when another process changed it";
}

void *commit_elsewhere(void *) {
    pthread_detach(pthread_self());
    prctl(PR_SET_NAME, "writer");
    CommitCfm();
    return nullptr;
}

TEST_F(VirtualAp, JournalLineSaysWhenWhoWhatAndHow) {
    vap::advance(1.50049);
    send_msg_to_netctrl(61, nullptr);
    SetValue("k", "\xff\x01z");
    vap::note("own", Json::array({1, "two"}));
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, commit_elsewhere, nullptr), 0);
    vap::settle();
    std::vector<std::string> lines;
    for (const Json &line : vap::journal()) {
        lines.push_back(line.dump());
    }
    EXPECT_THAT(
        lines,
        ElementsAre(
            R"({"time":1.5,"thread":"main","op":"send_msg_to_netctrl","args":[61,null],"result":0})",
            R"({"time":1.5,"thread":"main","op":"SetValue","args":["k","ff017a"],"result":0})",
            R"({"time":1.5,"thread":"main","op":"own","args":[1,"two"],"result":null})",
            R"({"time":1.5,"thread":"writer","op":"CommitCfm","args":[],"result":1})"));
    vap::clear_journal();
    EXPECT_TRUE(vap::journal().empty());
    char value[APMIB_VALUE_MAX];
    GetValue("lan.ip", value);
    system_get_uptime();
    EXPECT_TRUE(vap::journal().empty()) << "reads are no effects";
}

TEST_F(VirtualAp, PlannedFaultsHitTheirCalls) {
    vap::fail("SetValue", 2, 2);
    std::vector<int> results;
    for (int i = 0; i < 5; ++i) {
        results.push_back(SetValue("k", "v"));
    }
    EXPECT_THAT(results, ElementsAre(1, 0, 0, 1, 1));

    vap::fail("monitor_mstart", 1, -1, -7);
    EXPECT_EQ(monitor_mstart("ntdd"), -7);
    EXPECT_EQ(monitor_mstart("ntdd"), -7);

    vap::patch_hardware(
        {{"faults", Json::array({{{"op", "CommitCfm"}, {"nth", 2}}, {{"op", 5}}, "nonsense"})}});
    testing::internal::CaptureStderr();
    EXPECT_EQ(CommitCfm(), 1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("not a fault"));
    EXPECT_EQ(CommitCfm(), 0);
    EXPECT_EQ(CommitCfm(), 1);
    for (const int times : {-1, 0}) {
        vap::patch_hardware({{"faults", Json::array({{{"op", "CommitCfm"}, {"times", times}}})}});
        EXPECT_EQ(CommitCfm(), times == 0 ? 1 : 0) << "in place of those before";
    }

    vap::fail("pthread_create");
    pthread_t thread;
    EXPECT_EQ(pthread_create(&thread, nullptr, commit_elsewhere, nullptr), EAGAIN);
    std::thread([] {}).join();  // no thread of the agent: not counted either
}

TEST_F(VirtualAp, RestartIsOnlyAskedForInATest) {
    systool_reboot_if_necessary();
    EXPECT_EQ(vap::machine()->restart, 0) << "nothing was stopped";
    EXPECT_EQ(systool_sys_handle(1), -1);
    EXPECT_EQ(vap::machine()->restart, 0);
    systool_kill_all_process(1, "norvex");
    systool_reboot_if_necessary();
    EXPECT_EQ(vap::machine()->restart, 1);
    EXPECT_EQ(systool_sys_handle(SYSTOOL_RESTORE_FACTORY), 0);
    EXPECT_EQ(systool_sys_handle(SYSTOOL_REBOOT), 0);
    EXPECT_EQ(vap::machine()->restart, 2) << "a restore stays one";
    EXPECT_THAT(
        effects({"systool_sys_handle"}),
        ElementsAre("systool_sys_handle 1", "systool_sys_handle 2", "systool_sys_handle 0"));
}

TEST_F(VirtualAp, WithoutAThreadACallFails) {
    const std::filesystem::path folder = vap::folder();
    vap::open_device(folder, {.time = vap::Time::manual});  // a restart would end the test
    holymsg_run_async();
    holymsg_subscribe(
        "t", [](const char *, const char *, int, void *) {}, nullptr);
    write_file("/tmp/image", "image");
    vap::fail("thread", 1, -1);
    EXPECT_EQ(holymsg_publish("t", "x", 1), -1);
    EXPECT_EQ(systool_sys_handle(SYSTOOL_RESTORE_FACTORY), -1);
    ASSERT_EQ(kill(-1, 0), -1) << "caught, so that the next is, too";
    EXPECT_EQ(kill(1, SIGTERM), -1);
    EXPECT_EQ(systool_write_image_ap("/tmp/image", 2), -1);
    EXPECT_EQ(vap::machine()->restart, 0) << "the next one may";
    vap::forget_faults();
    EXPECT_EQ(holymsg_publish("t", "x", 1), 0);

    vap::patch_hardware({{"faults", Json::array({{{"op", "thread"}}})}});
    EXPECT_THAT(complaint([&] { vap::open_device(folder); }), HasSubstr("cannot start"));
    EXPECT_EQ(vap::machine(), nullptr);
}

}  // namespace

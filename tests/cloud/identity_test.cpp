#include "cloud/identity.h"

#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Identity : public test::Device {
  protected:
    vap::Json basic_info() {
        const auto sent = uploads("nx_api_set_basic_info");
        return sent.empty() ? vap::Json() : vap::Json::parse(sent.back().data);
    }
};

TEST_F(Identity, TellsWhoTheDeviceIs) {
    set("ap.apname", "ZX-A5V1.0");
    vap::patch_hardware({{"interfaces", {{"br0", {{"mac", "0a:1b:2c:3d:4e:5f"}}}}}});
    EXPECT_EQ(set_basic_info(), 0);
    EXPECT_EQ(basic_info().dump(),
              R"-({"manage_en":0,"device_type":2,"serial":"NXT0000000001","mac":"0A1B2C3D4E5F",)-"
              R"-("firmware_version":"V1.0.0.11(10862)","hardware_version":"0.0.0.0",)-"
              R"("brand":"KALDEN","model":"ZX-A5","credential":"qzvur"})");
    EXPECT_THAT(effects({"SetValue", "CommitCfm", "send_msg_to_netctrl"}), IsEmpty())
        << "an unmanaged device leaves its clock alone";
}

TEST_F(Identity, CutsWhatDoesNotFit) {
    set("norvex.fw.ver", std::string(90, 'v'));
    set("ap.apname", "abc");
    set("nx.manage.en", "1");
    nxapi::assign_serial("x");  // nothing is registered: no harm
    set_basic_info();
    EXPECT_EQ(basic_info()["firmware_version"], std::string(63, 'v'));
    EXPECT_EQ(basic_info()["model"], "") << "a name shorter than its version ending";
    EXPECT_THAT(effects({"SetValue", "CommitCfm", "send_msg_to_netctrl"}),
                ElementsAre("SetValue sys.timesyn 1", "CommitCfm", "send_msg_to_netctrl 24 op=3"));
    set("norvex.fw.ver", "");
    set_basic_info();
    EXPECT_EQ(basic_info()["firmware_version"], "") << "present, though empty";
}

TEST_F(Identity, KeepsTheSerialThatTheCloudAssigns) {
    set_basic_info();
    nxapi::assign_serial(std::string(40, 'S'));
    EXPECT_THAT(effects({"ApmibSetValue", "ApmibCommitCfm"}),
                ElementsAre("ApmibSetValue ZQ_ATE_SN " + std::string(40, 'S'), "ApmibCommitCfm"));
    set_basic_info();
    EXPECT_EQ(basic_info()["serial"], std::string(32, 'S'));
    vap::fail("ApmibSetValue");
    nxapi::assign_serial("refused");
    EXPECT_THAT(effects({"ApmibCommitCfm"}), IsEmpty());
}

TEST_F(Identity, TellsHowTheDeviceIsBound) {
    EXPECT_EQ(set_bind_info(), 0);
    set("nx.manage.en", "1");
    set("nx.manage.mode", "2");
    set("nx.cloud.id", "c-1");
    set("nx.project.id", "12345678");
    set("nx.url", "https://cloud.example/a/very/long/path");
    set("nx.bind_status", "1");
    EXPECT_EQ(set_bind_info(), 0);
    const auto sent = uploads("nx_api_bind_info_upload");
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].data,
              "{\n\t\"cloud_manage\":\t2,\n\t\"manage\":\t0,\n\t\"cloud_id\":\t\"\",\n"
              "\t\"project_id\":\t0,\n\t\"url\":\t\"\",\n\t\"bind_status\":\t0\n}");
    EXPECT_EQ(sent[1].data,
              "{\n\t\"cloud_manage\":\t1,\n\t\"manage\":\t2,\n\t\"cloud_id\":\t\"c-1\",\n"
              "\t\"project_id\":\t12345678,\n\t\"url\":\t\"https://cloud.example/a/very/lo\",\n"
              "\t\"bind_status\":\t1\n}");
    EXPECT_EQ(sent[1].length, static_cast<int>(sent[1].data.size()));
}

TEST_F(Identity, ReportsRefusals) {
    refuse("nx_api_set_basic_info");
    refuse("nx_api_bind_info_upload");
    EXPECT_EQ(set_basic_info(), -1);
    EXPECT_EQ(set_bind_info(), -1);
}

TEST_F(Identity, UploadsTheLogWhateverBecameOfTheAlarm) {
    const vap::Json record = {{"time", "t"}, {"type", 1}, {"event", "e"}};
    vap::patch_hardware({{"system", {{"rom", 95}}}, {"syslog", {record}}});
    refuse("nx_api_alarm_upload");
    EXPECT_EQ(norvex_add_timer(), 0);
    EXPECT_THAT(uploads("nx_api_alarm_upload"), ::testing::SizeIs(1));
    EXPECT_THAT(uploads("nx_api_sys_log_upload"), ::testing::SizeIs(1));
}

TEST_F(Identity, NamesTheImageDirectoryOnceAfterFifteenSeconds) {
    set_upgrade_path_info();
    vap::advance(14.5);
    EXPECT_THAT(uploads("nx_api_dir_info_set"), IsEmpty());
    vap::advance(1);
    vap::advance(100);
    const auto sent = uploads("nx_api_dir_info_set");
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].data, std::string("/tmp/image") + std::string(246, '\0'));
}

TEST_F(Identity, StartsWithoutItsThreadsWhenNoneCanStart) {
    vap::fail("pthread_create", 1, 2);
    EXPECT_EQ(nx_log_upload_init(), 0);
    set_upgrade_path_info();
    vap::advance(60);
    EXPECT_THAT(effects({"nx_api_dir_info_set", "nx_api_sys_log_upload"}), IsEmpty());
}

}  // namespace

#include "cloud/identity.h"

#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
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
    EXPECT_EQ(set_basic_info(), 0);
    const vap::Json info = basic_info();
    EXPECT_EQ(info["manage_en"], 0);
    EXPECT_EQ(info["device_type"], 2);
    EXPECT_EQ(info["serial"], "NXT0000000001");
    EXPECT_THAT(info["mac"].get<std::string>(), ::testing::MatchesRegex("[0-9A-F]{12}"));
    EXPECT_EQ(info["firmware_version"], "V1.0.0.11(10862)");
    EXPECT_EQ(info["hardware_version"], "0.0.0.0");
    EXPECT_EQ(info["brand"], "KALDEN");
    EXPECT_EQ(info["model"], "ZX-A5");
    EXPECT_EQ(info["credential"], "qzvur");
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
}

TEST_F(Identity, KeepsTheSerialThatTheCloudAssigns) {
    set_basic_info();
    nxapi::assign_serial(std::string(40, 'S'));
    EXPECT_THAT(effects({"ApmibSetValue", "ApmibCommitCfm"}),
                ElementsAre("ApmibSetValue ZQ_ATE_SN " + std::string(40, 'S'), "ApmibCommitCfm"));
    set_basic_info();
    EXPECT_EQ(basic_info()["serial"], std::string(32, 'S'));
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

TEST_F(Identity, SendsNoBindingWithAMemberMissing) {
    int result = 0;
    test::fail_each_allocation([&] { result = set_bind_info(); },
                               [&](bool passed) { EXPECT_EQ(result, passed ? 0 : -1); });
    EXPECT_THAT(uploads("nx_api_bind_info_upload"), ::testing::SizeIs(1));
}

TEST_F(Identity, ReportsRefusals) {
    refuse("nx_api_set_basic_info");
    refuse("nx_api_bind_info_upload");
    EXPECT_THAT(output_of([] { EXPECT_EQ(set_basic_info(), -1); }),
                HasSubstr("] : nx_api_set_basic_info err!\n"));
    EXPECT_THAT(output_of([] { EXPECT_EQ(set_bind_info(), -1); }), HasSubstr("[set_bind_info]["));
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
    EXPECT_THAT(output_of([] {
                    EXPECT_EQ(nx_log_upload_init(), 0);
                    set_upgrade_path_info();
                }),
                ::testing::ContainsRegex("nx_log_upload_init.*pthread create err!\n.*"
                                         "set_upgrade_path_info.*pthread create err!\n"));
}

}  // namespace

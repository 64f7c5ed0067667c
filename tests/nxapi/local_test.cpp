#include "nxapi/local.h"

#include "tests/nxapi/cloud_device.h"

namespace {

using nxapi::Upload;

/** The process in the place of the cloud; refuses the call of one name. */
class Local : public ::testing::Test {
  protected:
    Local() {
        nxapi::begin_local([this](const Upload &upload) {
            uploads.push_back(upload);
            return upload.call == refused ? -1 : 7;
        });
    }
    ~Local() override { nxapi::end_local(); }

    std::vector<Upload> uploads;
    std::string refused;
};

struct UploadCall {
    const char *name;
    int (*call)(const char *, int);
};

constexpr UploadCall upload_calls[] = {
    {"nx_api_bind_info_upload", nx_api_bind_info_upload},
    {"nx_api_dir_info_set", nx_api_dir_info_set},
    {"nx_api_config_upload", nx_api_config_upload},
    {"nx_api_duplicate_config_upload", nx_api_duplicate_config_upload},
    {"nx_api_manage_info_upload", nx_api_manage_info_upload},
    {"nx_api_alarm_upload", nx_api_alarm_upload},
    {"nx_api_sys_log_upload", nx_api_sys_log_upload},
    {"nx_api_sys_log_upload_v1", nx_api_sys_log_upload_v1},
    {"nx_api_net_check_back", nx_api_net_check_back},
    {"nx_api_radio_optimiza_back", nx_api_radio_optimiza_back},
    {"dev_upgrade_notice", dev_upgrade_notice},
};

TEST_F(Local, UploadsReachTheSinkUnderTheirNamesWithEveryByte) {
    const std::string data("a\0b\0", 4);
    for (const UploadCall &row : upload_calls) {
        EXPECT_EQ(row.call(data.data(), 4), 7) << row.name;
        ASSERT_FALSE(uploads.empty());
        EXPECT_EQ(uploads.back().call, row.name);
        EXPECT_EQ(uploads.back().data, data);
        EXPECT_EQ(uploads.back().length, 4);
        refused = row.name;
        EXPECT_EQ(row.call(data.data(), 4), -1) << row.name;
        EXPECT_EQ(row.call(nullptr, 4), -1) << row.name;
        EXPECT_EQ(row.call(data.data(), -1), -1) << row.name;
    }
}

TEST_F(Local, StartUpCallsReachTheSinkInTheirOrder) {
    assign_poll_start(nullptr);
    assign_poll_stop(nullptr);
    refused = "nx_api_lib_init";
    EXPECT_EQ(nx_api_lib_init(), -1);
    set_debug_level(7);
    updaet_local_wireless_timestamp();
    ASSERT_EQ(uploads.size(), 5U);
    EXPECT_EQ(uploads[0].call, "assign_poll_start");
    EXPECT_EQ(uploads[1].call, "assign_poll_stop");
    EXPECT_EQ(uploads[2].call, "nx_api_lib_init");
    EXPECT_EQ(uploads[3].call, "set_debug_level");
    EXPECT_EQ(uploads[3].data, "7");
    EXPECT_EQ(uploads[4].call, "updaet_local_wireless_timestamp");
}

TEST_F(Local, IdentityIsAJsonTextOfItsMembers) {
    nx_basic_info info{};
    info.manage_en = 1;
    info.device_type = 2;
    // A field that is full has no NUL: the text ends with the field.
    std::memset(info.mac, 'A', sizeof(info.mac));
    std::strcpy(info.serial, "SN\"1");
    std::strcpy(info.credential, "qzvur");
    EXPECT_EQ(nx_api_set_basic_info(&info), 7);
    EXPECT_EQ(uploads.at(0).data,
              R"({"manage_en":1,"device_type":2,"serial":"SN\"1","mac":"AAAAAAAAAAAAAAAAAA",)"
              R"("firmware_version":"","hardware_version":"","brand":"","model":"",)"
              R"("credential":"qzvur"})");
    EXPECT_EQ(nx_api_set_basic_info(nullptr), -1);
}

TEST_F(Local, CommandsRunFromACopyOfTheirTable) {
    nx_slot slots[NX_WLAN_SLOTS] = {};
    slots[3].callback = test::echo_command;
    EXPECT_EQ(nx_api_enable_m_wlan_fun(slots), 7);
    refused = "nx_api_enable_m_wlan_fun";
    slots[3] = {};
    slots[0].callback = test::echo_command;
    EXPECT_EQ(nx_api_enable_m_wlan_fun(slots), -1);
    const nxapi::Answer answer = nxapi::call("wlan", 3, "{}");
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.response, std::string("<{}>\0", 5));
    EXPECT_EQ(answer.length, 5);
    for (const int slot : {0, -1, static_cast<int>(NX_WLAN_SLOTS)}) {
        EXPECT_EQ(nxapi::call("wlan", slot, nullptr).result, -1) << slot;
        EXPECT_FALSE(nxapi::call("wlan", slot, nullptr).response) << slot;
    }
}

}  // namespace

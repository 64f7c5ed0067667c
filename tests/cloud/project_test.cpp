#include "cloud/project.h"

#include <map>

#include "core/cloud_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Project : public test::Device {};

TEST_F(Project, BindsInOrder) {
    EXPECT_EQ(call(add_router_to_prj,
                   R"({"cloud_id":"c-1","project_id":77,"time_zone":"-3.5","region":-9})"),
              "{\n\t\"cloud_id\":\t\"c-1\",\n\t\"project_id\":\t77,\n\t\"resp_code\":\t0\n}");
    EXPECT_THAT(
        effects(),
        ElementsAre(
            "SetValue sys.region_index -9", "SetValue sys.timezone 8.5",
            "SetValue wl2g.public.country_code CN", "SetValue wl2g.public.countrycode_all 1",
            "SetValue wl2g.public.countrycode_other 1", "SetValue wl5g.public.country_code US",
            "SetValue wl5g.public.country_code_convert CN",
            "SetValue wl5g.public.countrycode_all 1", "SetValue wl5g.public.countrycode_other 1",
            "SetValue nx.manage.en 1", "SetValue nx.cloud.id c-1", "SetValue nx.project.id 77",
            "SetValue nx.msgreport 1", "SetValue nx.bind_status 1", "SetValue nx.manage.mode 1",
            "SetValue wl.identifyOS_en 1", "send_msg_to_netctrl 61 null", "SetValue sys.timesyn 1",
            "CommitCfm", "send_msg_to_netctrl 24 op=3"));
}

TEST_F(Project, RebindsWithoutTouchingWhatStands) {
    call(add_router_to_prj, R"({"project_id":77})");
    effects();
    call(add_router_to_prj, R"({"project_id":77})");
    EXPECT_THAT(effects(),
                ElementsAre("SetValue sys.region_index 38", "SetValue nx.manage.en 1",
                            "SetValue nx.cloud.id ", "SetValue nx.project.id 77",
                            "SetValue nx.msgreport 1", "SetValue nx.bind_status 1",
                            "SetValue sys.timesyn 1", "CommitCfm", "send_msg_to_netctrl 24 op=3"));
    call(add_router_to_prj, R"({"project_id":"77"})");  // a text is no number: project 0, a new one
    EXPECT_EQ(get("nx.project.id"), "0");
    EXPECT_EQ(effects({"SetValue"}).size(), 14U) << "the country codes are written again";
}

TEST_F(Project, AnswersNullsWhenNothingWasSaved) {
    vap::fail("CommitCfm");
    EXPECT_EQ(call(add_router_to_prj, R"({"cloud_id":"c","project_id":1})"),
              "{\n\t\"cloud_id\":\tnull,\n\t\"project_id\":\tnull,\n\t\"resp_code\":\t-1\n}");
    EXPECT_THAT(effects({"send_msg_to_netctrl"}), ElementsAre("send_msg_to_netctrl 61 null"));
    EXPECT_EQ(get("nx.project.id"), "1") << "pending until the next commit";
}

TEST_F(Project, UnbindsInOrderWhateverTheCommitSays) {
    for (const bool saved : {true, false}) {
        if (!saved) {
            vap::fail("CommitCfm");
        }
        EXPECT_EQ(call(del_router_from_prj, R"({"ignored":1})"), "{\n\t\"resp_code\":\t0\n}");
        EXPECT_THAT(effects(),
                    ElementsAre("SetValue nx.manage.en 0", "SetValue nx.manage.status 0",
                                "SetValue nx.cloud.id ", "SetValue nx.project.id ",
                                "SetValue nx.bind_status 0", "SetValue nx.msgreport 0",
                                "SetValue sys.region_index 38", "SetValue sys.timezone 20",
                                "SetValue sys.timesyn 0", "SetValue sys.schedulereboot.enable 0",
                                "SetValue sys.schedulereboot.type 0",
                                "SetValue sys.schedulereboot.interval 1440",
                                "SetValue sys.schedulereboot.start_time 3:00",
                                "SetValue sys.schedulereboot.wday 0000000", "CommitCfm",
                                "send_msg_to_netctrl 24 op=2", "send_msg_to_netctrl 39 op=3"));
    }
}

TEST_F(Project, StoresTheServersStatusInverted) {
    for (const auto &[request, stored] : std::map<std::string, std::string>{
             {R"({"cloud_status":1})", "0"},
             {"{}", "0"},
             {R"({"cloud_status":2})", "1"},
             {R"({"cloud_status":"0"})", "0"}}) {  // a text counts as absent
        EXPECT_EQ(call(server_status, request), "{\n\t\"resp_code\":\t0\n}");
        EXPECT_THAT(effects(), ElementsAre("SetValue nx.manage.status " + stored, "CommitCfm"))
            << request;
    }
}

TEST_F(Project, OpensTheCloudForTheApp) {
    EXPECT_EQ(call(app_open_cloud, R"({"cloud_id":"c-9"})"),
              "{\n\t\"cloud_id\":\t\"c-9\",\n\t\"resp_code\":\t0\n}");
    EXPECT_THAT(effects(), ElementsAre("SetValue nx.manage.en 1", "SetValue nx.cloud.id c-9",
                                       "SetValue nx.msgreport 1", "SetValue lan.type 0",
                                       "CommitCfm", "send_msg_to_netctrl 1 op=0", "CommitCfm",
                                       "send_msg_to_netctrl 39 op=3"));
    vap::fail("CommitCfm", 1, 2);
    EXPECT_EQ(call(app_open_cloud), "{\n\t\"cloud_id\":\tnull,\n\t\"resp_code\":\t-1\n}");
    EXPECT_THAT(effects({"send_msg_to_netctrl"}), ElementsAre("send_msg_to_netctrl 39 op=3"));
}

TEST_F(Project, LeavesARunningDhcpClientAlone) {
    for (const char *client : {"dhcpcd_ac", "dhcpcd_lan"}) {
        vap::patch_hardware({{"processes", {client}}});
        EXPECT_EQ(norvex_set_lan_dhcp(), 0);
        EXPECT_THAT(effects(), IsEmpty()) << client;
    }
}

TEST_F(Project, ServesTheSlotsOfTheCloudFamily) {
    ASSERT_EQ(cloud_api(), 0);
    const std::pair<int, const char *> first_effects[] = {
        {0, "SetValue sys.region_index 38"},
        {1, "SetValue nx.manage.en 0"},
        {3, "SetValue nx.manage.status 0"},
        {4, "SetValue nx.manage.en 1"},
    };
    for (const auto &[slot, effect] : first_effects) {
        effects();
        EXPECT_EQ(nxapi::call("cloud", slot, "{}").result, 0);
        EXPECT_EQ(effects().at(0), effect);
    }
    EXPECT_EQ(nxapi::call("cloud", 2, "{}").length, 21) << "config_sync counts the NUL";
    refuse("nx_api_enable_m_cloud_fun");
    EXPECT_EQ(cloud_api(), -1);
}

TEST_F(Project, ConvertsTimeZones) {
    set("sys.timezone", "20");
    struct Row {
        const char *zone;
        const char *stored;
    } const rows[] = {
        {"+8", nullptr},  // unchanged
        {"-3.5", "8.5"},
        {"5.75", "17.75"},
        {"-12", "0"},
        {"garbage", "12"},
        {"", nullptr},  // reads as 0, too
        {"nan", nullptr},
        {"1e39", nullptr},
        {"1e38", "99999996802856924650656260769173209088"},  // single precision, whole
    };
    for (const Row &row : rows) {
        effects();
        EXPECT_EQ(set_timezone(row.zone), row.stored != nullptr ? 0 : -1) << row.zone;
        if (row.stored != nullptr) {
            EXPECT_THAT(effects(), ElementsAre(std::string("SetValue sys.timezone ") + row.stored));
        } else {
            EXPECT_THAT(effects(), IsEmpty()) << row.zone;
        }
    }
}

TEST_F(Project, ReportsTheManagementMode) {
    struct Row {
        const char *enabled;
        const char *mode;
        int expected;
    } const rows[] = {{"0", "2", 0}, {"1", "2", 2}, {"1", "1", 1}, {"1", "", 0}, {"2x", "2", 2}};
    for (const Row &row : rows) {
        set("nx.manage.en", row.enabled);
        set("nx.manage.mode", row.mode);
        EXPECT_EQ(get_sky_mode(), row.expected);
    }
}

}  // namespace

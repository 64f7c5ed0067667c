/**
 * Hundreds of lives on the model of a device, and some on the agent itself.
 */
#include <gmock/gmock.h>

#include "cloud/identity.h"
#include "cloud/project.h"
#include "ops/nx_dev_api.h"
#include "report/uploads.h"
#include "tests/controller/desired_history.h"
#include "tests/controller/desired_model.h"
#include "tests/support/support.h"
#include "virtual/device/machine.h"
#include "wireless/wireless_api.h"

namespace {

using test::History;
using test::Json;
using test::Model;

TEST(Histories, EndInSyncWhateverHappened) {
    size_t commands = 0;
    for (unsigned seed = 1; seed <= 300 && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Model model;
        History history(seed, model);
        history.live();
        history.expect_good_end();
        commands += history.sent().size();
    }
    EXPECT_GT(commands, 300U * 7) << "the lives are empty";
}

/** The agent on a virtual access point. */
class Agent : public test::Device, public test::Box {
  protected:
    Json call(const std::string &command, const Json &request) override {
        struct Row {
            const char *name;
            nx_handler handler;
        };
        constexpr Row rows[] = {{"add_router_to_prj", add_router_to_prj},
                                {"del_router_from_prj", del_router_from_prj},
                                {"server_status", server_status},
                                {"timestamp_download", timestamp_download},
                                {"auto_maint", auto_maint},
                                {"wlan_config_set", wlan_config_set},
                                {"radio_config_set", radio_config_set},
                                {"config_upload", config_upload}};
        const auto *row = std::ranges::find_if(
            rows, [&](const Row &candidate) { return command == candidate.name; });
        return answer(row->handler, request.dump());
    }
    Json binding() override {
        EXPECT_EQ(set_bind_info(), 0);
        return Json::parse(uploads("nx_api_bind_info_upload").back().data);
    }
    void restart() override {
        look_at_journal();
        vap::close_device();
        vap::open_device(folder() / "ap", {.time = vap::Time::manual, .restarts_process = false});
        fail_commits(failing_commits_);  // a fault lasts as long as its device's process
    }
    bool takes_restart() override {
        look_at_journal();
        return std::exchange(restarts_, false);
    }
    void restore() override { vap::machine()->config.replace(vap::default_configuration("ZX-A5")); }
    void edit(const std::string &key, const std::string &value) override { set(key, value); }
    std::string value(const std::string &key) override { return vap::config_get(key).value_or(""); }
    void fail_commits(int count) override {
        look_at_journal();
        failing_commits_ = count;
        vap::forget_faults();
        if (count > 0) {
            vap::fail("CommitCfm", 1, count);
        }
    }

  private:
    void look_at_journal() {
        for (const Json &line : vap::journal()) {
            restarts_ |= line["op"] == "systool_sys_handle";
            failing_commits_ -= line["op"] == "CommitCfm" && line["result"] == 0 ? 1 : 0;
        }
        vap::clear_journal();
    }

    bool restarts_ = false;
    int failing_commits_ = 0;
};

/** What a report tells, without what differs between the default settings. */
Json told(test::Box &box) {
    const Json report = box.call("config_upload", Json::object());
    Json told = {report["maint"]};
    for (const char *radio : {"radio1", "radio2"}) {
        for (const Json &ssid : report["wireless"]["wireless_config"][radio]) {
            for (const char *member : {"ssid", "hide", "encrypt", "security", "vlan", "max_conn",
                                       "time_close", "timeval", "client_quarantine"}) {
                told.push_back(ssid["status"] == 1 ? ssid[member] : Json());
            }
        }
    }
    for (const Json &rule : report["wireless"]["radio_config"]["rf_rule"]) {
        for (const char *member : {"channel", "power", "rssi", "radioenable", "is_ap_client"}) {
            told.push_back(rule[member]);
        }
    }
    return told;
}

class AgentHistories : public Agent, public ::testing::WithParamInterface<unsigned> {};

TEST_P(AgentHistories, AreThoseOfTheModel) {
    Model model;
    History modelled(GetParam(), model);
    modelled.live();
    modelled.expect_good_end();
    History history(GetParam(), *this);
    history.live();
    history.expect_good_end();
    EXPECT_EQ(history.sent(), modelled.sent());
    EXPECT_EQ(told(*this), told(model));
}

INSTANTIATE_TEST_SUITE_P(Seeds, AgentHistories, ::testing::Range(1U, 13U));

}  // namespace

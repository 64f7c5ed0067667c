#include "controller/desired/step.h"

#include <gmock/gmock.h>

#include <limits>

#include "tests/controller/desired_model.h"
#include "tests/controller/desired_samples.h"

namespace {

using namespace desired;
using test::changed;
using test::Model;
using test::World;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Fate = World::Fate;

Desire sample_desire() {
    Desire desire;
    desire.site = test::sample_site();
    // A VLAN restarts the device, and that much power is beyond its bounds: seldom wanted here.
    const Json plain = changed(test::sample_configuration(), "/ssids/0/vlan", nullptr);
    desire.configuration = check_configuration(changed(plain, "/radios/5/power_dbm", 16)).document;
    desire.version = "1";
    return desire;
}

/** A device that was just taken out of its box. */
class Step : public ::testing::Test {
  protected:
    Step() { model.edit("wl5g.public.web_max_power", "17"); }

    State settled() { return world.settle().state; }

    /** The device is in sync, and what was sent for that is forgotten. */
    void begin_in_sync() {
        ASSERT_EQ(settled(), State::in_sync);
        test::expect_configured(model, world.desire.configuration);
        world.take_sent();
    }

    /** Goes on until the next order is for this; it. */
    static Order reach(World &life, Task task) {
        Next next = life.look();
        for (int i = 0; i < 50 && (!next.order || next.order->task != task); ++i) {
            life.turn();
            next = life.look();
        }
        return next.order.value();
    }

    std::string differences() { return nlohmann::json(world.look().differences).dump(); }

    Model model;
    World world{model, sample_desire()};
};

TEST_F(Step, ANewDeviceIsBoundConfiguredAndReadBack) {
    EXPECT_EQ(world.look().state, State::pending);
    EXPECT_EQ(world.turn().order->request.dump(),
              R"({"cloud_id":"cloud-7","project_id":42,"time_zone":"+8","region":38})");
    EXPECT_EQ(world.turn().order->request.dump(),
              R"({"timestamp":1700000001,"time_zone":"+8","region":38,"time_array":[)"
              R"({"mode":0,"timestamp":0},{"mode":1,"timestamp":0},{"mode":2,"timestamp":0}]})");
    EXPECT_EQ(world.turn().order->request.dump(), R"({"cloud_status":0})");
    world.turn();
    EXPECT_EQ(world.look().state, State::applying);
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_THAT(world.take_sent(),
                ElementsAre("add_router_to_prj", "timestamp_download", "server_status",
                            "auto_maint", "wlan_config_set", "radio_config_set", "config_upload"));
    test::expect_configured(model, world.desire.configuration);
    EXPECT_EQ(model.value("nx.wireless_timestamp"), std::to_string(world.known.wireless_stamp));
    EXPECT_EQ(model.value("nx.maint_timestamp"), std::to_string(world.known.maintenance_stamp));
}

TEST_F(Step, EachConnectionIsAskedAndReadAndNothingElse) {
    begin_in_sync();
    world.absorb(Online{world.known.number, world.known.since_ms});  // the same one again
    EXPECT_EQ(world.look().state, State::in_sync);
    world.reconnect();
    EXPECT_EQ(world.look().state, State::pending);
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_THAT(world.take_sent(), ElementsAre("timestamp_download", "config_upload"));
    world.restart();
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_THAT(world.take_sent(),
                ElementsAre("timestamp_download", "server_status", "config_upload"));
    world.now += day;
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_THAT(world.take_sent(), ElementsAre("timestamp_download", "config_upload"));
    world.desire.site["time_zone"] = "-3";
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_THAT(world.take_sent(), ElementsAre("timestamp_download"));
    EXPECT_EQ(model.value("sys.timezone"), "9");
}

TEST_F(Step, OnlyWhatDiffersIsSent) {
    struct Row {
        const char *pointer;
        Json value;
        std::vector<std::string> pushed;
    };
    const Row rows[] = {
        {"/reboot", nullptr, {"auto_maint"}},
        {"/ssids/0/max_clients", 5, {"wlan_config_set", "radio_config_set"}},
        {"/radios/5/channel", 44, {"radio_config_set"}},
    };
    begin_in_sync();
    for (const Row &row : rows) {
        world.now += 600;
        world.configure(changed(world.desire.configuration, row.pointer, row.value));
        EXPECT_EQ(world.look().state, State::pending);
        EXPECT_EQ(settled(), State::in_sync) << row.pointer;
        std::vector<std::string> sent{"config_upload", "timestamp_download"};
        sent.insert(sent.end(), row.pushed.begin(), row.pushed.end());
        sent.emplace_back("config_upload");
        EXPECT_EQ(world.take_sent(), sent) << row.pointer;
        test::expect_configured(model, world.desire.configuration);
    }
}

TEST_F(Step, NothingIsSentWhileTheDeviceRestartsForAVlan) {
    begin_in_sync();
    world.configure(test::sample_configuration());
    const Order order = reach(world, Task::ssids);
    world.absorb(Sent{order});
    world.absorb(ManageHeard{{{"mode", "wireless"}, {"manage", 1}}});
    world.absorb(Answered{order.number, model.call(order.name, order.request)});
    const Next next = world.look();
    EXPECT_FALSE(next.order);
    EXPECT_EQ(next.at, world.now + restart_wait);
    world.commands = world.known.commands;
    world.take_sent();
    model.takes_restart();
    world.restart();
    EXPECT_EQ(settled(), State::in_sync);
    // The SSIDs are there; the wireless stamp is still to come.
    EXPECT_THAT(world.take_sent(),
                ElementsAre("timestamp_download", "server_status", "config_upload",
                            "radio_config_set", "config_upload"));
    EXPECT_EQ(model.value("wl2g.ssid0.vlanid"), "30");
}

TEST_F(Step, DriftIsShownOrForcedBack) {
    begin_in_sync();
    model.edit("wl5g.ssid0.wpapsk_psk", "my-own-phrase");
    world.now += day;
    EXPECT_EQ(settled(), State::differs);
    EXPECT_EQ(differences(),
              R"([{"found":"other","kind":"drift","path":"/ssids/Staff/5/passphrase",)"
              R"("wanted":"set"}])");
    EXPECT_THAT(world.take_sent(), ElementsAre("timestamp_download", "config_upload"));
    world.restart();
    EXPECT_EQ(settled(), State::differs) << "it was there after the push: somebody changed it";
    world.desire.site["policies"]["drift"] = "force";
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_EQ(model.value("wl5g.ssid0.wpapsk_psk"), "welcome-2024");
}

TEST_F(Step, WhatADeviceDidNotKeepIsSentAgainThoughDriftIsOnlyShown) {
    const std::pair<Task, int> rows[] = {
        // The commit of the last radio, which nothing follows, and that of the schedule.
        {Task::radios, 2},
        {Task::radios, 1},
        {Task::maintenance, 1},
    };
    for (const auto &[task, commits] : rows) {
        Model device;
        World life(device, sample_desire());
        reach(life, task);
        device.fail_commits(commits);
        life.turn();
        device.fail_commits(0);
        if (task == Task::maintenance) {
            life.turn(Fate::restarts_before);
        }
        EXPECT_EQ(life.settle().state, State::in_sync);
        life.restart();
        EXPECT_EQ(life.settle().state, State::in_sync);
        test::expect_configured(device, life.desire.configuration);
        life.restart();
        life.take_sent();
        EXPECT_EQ(life.settle().state, State::in_sync);
        EXPECT_EQ(life.take_sent().size(), 3U) << "it is there now";
    }
}

TEST_F(Step, ABoundOfThePowerIsASubstitution) {
    world.configure(changed(world.desire.configuration, "/radios/5/power_dbm", 20));
    ASSERT_EQ(settled(), State::in_sync);
    const std::string substituted =
        R"([{"found":17,"kind":"substituted","path":"/radios/5/power_dbm","wanted":20}])";
    EXPECT_EQ(differences(), substituted);
    world.reconnect();
    world.take_sent();
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_EQ(world.take_sent().size(), 2U);
    EXPECT_EQ(differences(), substituted);
    model.edit("wl5g.public.current_power", "9");  // no bound: somebody did that
    world.now += day;
    EXPECT_EQ(settled(), State::differs);
    // A radio that follows another access point is no reason to send anything.
    model.edit("wl5g.public.mode", "apclient");
    world.now += day;
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_THAT(differences(), ::testing::HasSubstr("substituted"));
}

TEST_F(Step, LocalManagementIsLeftAlone) {
    begin_in_sync();
    world.set_local(true);
    model.edit("wl2g.ssid0.ssid", "Mine");
    world.configure(changed(world.desire.configuration, "/ssids/0/max_clients", 9));
    EXPECT_EQ(settled(), State::locally_managed);
    world.restart();
    EXPECT_EQ(settled(), State::locally_managed);
    world.absorb(Wished{true});
    EXPECT_EQ(settled(), State::locally_managed);
    EXPECT_THAT(world.take_sent(), ::testing::Each("timestamp_download"));
    world.set_local(false);  // nobody tells
    world.now += day;
    EXPECT_EQ(settled(), State::in_sync);
    test::expect_configured(model, world.desire.configuration);
}

TEST_F(Step, ADeviceThatTakesNothingIsTriedLessAndLess) {
    begin_in_sync();
    model.fail_commits(1'000'000);  // each change of a VLAN restarts it without its change
    world.configure(test::sample_configuration());
    const Time begin = world.now;
    std::vector<Time> pushes;
    while (world.now < begin + 7 * day) {
        const Next next = world.turn();
        if (next.order && next.order->task == Task::ssids) {
            pushes.push_back(world.now - begin);
        }
    }
    ASSERT_GE(pushes.size(), 10U);
    EXPECT_LE(pushes.size(), 17U);
    EXPECT_LT(pushes[2], 300);
    for (size_t i = 3; i < pushes.size(); ++i) {
        const Time wait = std::min<Time>(round_wait << (i - 3), longest_round_wait);
        EXPECT_NEAR(static_cast<double>(pushes[i] - pushes[i - 1]), static_cast<double>(wait), 60);
    }
    EXPECT_LE(world.commands, 200);
    EXPECT_EQ(world.look().state, State::differs);
    EXPECT_EQ(world.look().differences[0].kind, Difference::Kind::refused);
    // A new version, or a person, begins anew.
    world.take_sent();
    model.fail_commits(0);
    world.absorb(Wished{true});
    EXPECT_EQ(settled(), State::in_sync);
}

TEST_F(Step, SilenceIsUnknownAndAskedLessAndLess) {
    begin_in_sync();
    world.now += day;
    const Time begin = world.now;
    while (world.now < begin + day) {
        world.turn(Fate::request_lost);
        EXPECT_TRUE(world.known.in_flight != 0 || world.look().state == State::unknown);
    }
    EXPECT_LE(world.take_sent().size(), 36U);
    EXPECT_EQ(settled(), State::in_sync);
    world.absorb(Offline{});
    EXPECT_EQ(world.look().state, State::unknown);
    EXPECT_FALSE(world.look().order || world.look().at);
}

TEST_F(Step, ACommandThatItsSenderForgotIsGivenUp) {
    for (const Task task : {Task::bind, Task::ask, Task::ssids, Task::read}) {
        Model device;
        World life(device, sample_desire());
        const Order order = reach(life, task);
        life.absorb(Sent{order});
        life.now += order.seconds;
        EXPECT_FALSE(life.look().order);
        life.now = *life.look().at;
        const Next next = life.look();
        ASSERT_TRUE(next.order);
        EXPECT_EQ(next.order->task, task == Task::bind ? Task::bind : Task::ask);
        life.absorb(Sent{*next.order});
        EXPECT_EQ(life.look().state, State::unknown);
        life.absorb(Answered{order.number, {{"resp_code", 0}}});  // too late
        EXPECT_EQ(life.known.in_flight, next.order->number);
        life.commands = next.order->number;
        life.absorb(TimedOut{next.order->number});
        EXPECT_EQ(life.settle().state, State::in_sync);
    }
}

TEST_F(Step, AnswersThatAreNoneAreNoSuccess) {
    for (const char *answer : {"null", "[]", "{}", R"({"resp_code": "0"})", R"({"resp_code": -1})",
                               R"({"resp_code": 0})" /* no report */}) {
        World life(model, sample_desire());
        const Order order = reach(life, Task::read);
        life.absorb(Sent{order});
        life.absorb(Answered{order.number + 1, Json::object()});
        life.absorb(TimedOut{order.number - 1});
        EXPECT_EQ(life.known.in_flight, order.number) << "another command's";
        life.absorb(Answered{order.number, Json::parse(answer)});
        EXPECT_EQ(life.known.in_flight, 0);
        const Next next = life.look();
        EXPECT_EQ(next.state, State::pending) << answer;
        EXPECT_EQ(next.at, life.now + fruitless_wait);
    }
}

TEST_F(Step, BindsByThePolicy) {
    struct Row {
        const char *policy;
        const char *binding;
        State state; /**< in the end */
        int64_t project;
    };
    const char *unbound = R"({"cloud_manage": 2, "manage": 0, "cloud_id": "", "bind_status": 0})";
    const char *other = R"({"cloud_manage": 1, "manage": 1, "cloud_id": "c", "project_id": 7,
                            "bind_status": 1})";
    const char *other_local = R"({"cloud_manage": 1, "manage": 2, "cloud_id": "c",
                                  "project_id": 7, "bind_status": 1})";
    const char *phone = R"({"cloud_manage": 1, "manage": 1, "cloud_id": "c", "bind_status": 0})";
    for (const Row &row : {
             Row{"unbound", unbound, State::in_sync, 42},
             Row{"unbound", phone, State::in_sync, 42},
             Row{"unbound", other, State::pending, 7},
             Row{"always", other, State::in_sync, 42},
             Row{"always", other_local, State::locally_managed, 7},
             Row{"never", unbound, State::pending, 0},
             Row{"never", other, State::pending, 7},
         }) {
        Model device;
        const Json told = Json::parse(row.binding);
        device.edit("nx.manage.en", told["cloud_manage"] == 1 ? "1" : "0");
        device.edit("nx.manage.mode", told["manage"].dump());
        device.edit("nx.cloud.id", told["cloud_id"]);
        device.edit("nx.project.id", told.value("project_id", Json(0)).dump());
        device.edit("nx.bind_status", told["bind_status"].dump());
        Desire desire = sample_desire();
        desire.site["policies"]["bind"] = row.policy;
        World life(device, desire);
        EXPECT_EQ(life.settle().state, row.state) << row.policy << row.binding;
        EXPECT_EQ(device.value("nx.project.id"), std::to_string(row.project));
        if (row.state != State::in_sync) {
            EXPECT_THAT(life.sent, IsEmpty());
            EXPECT_EQ(life.look().reason.empty(), row.state == State::locally_managed);
        }
    }
    // What is ours may move to another project of ours.
    begin_in_sync();
    world.desire.site["project_id"] = 43;
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_EQ(model.value("nx.project.id"), "43");
}

TEST_F(Step, AnUnboundOrRestoredDeviceIsBoundAgainAndSentEverything) {
    for (const bool restored : {false, true}) {
        begin_in_sync();
        const int64_t stamp = world.known.last_stamp;
        world.now += 2 * day;
        if (restored) {
            model.restore();
        } else {
            model.call("del_router_from_prj", {});
        }
        world.restart();
        EXPECT_EQ(settled(), State::in_sync);
        EXPECT_THAT(world.take_sent(), ElementsAre("add_router_to_prj", "timestamp_download",
                                                   "server_status", "auto_maint", "wlan_config_set",
                                                   "radio_config_set", "config_upload"));
        EXPECT_GT(world.known.maintenance_stamp, stamp);
        test::expect_configured(model, world.desire.configuration);
    }
    // Its number of connections does not always tell a restart: both stamps are gone.
    begin_in_sync();
    model.restore();
    world.restart(9);
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_EQ(model.value("nx.project.id"), "42");
}

TEST_F(Step, OtherPeoplesCommandsAreFollowedUp) {
    begin_in_sync();
    world.absorb(Commanded{"status_upload", {}});
    EXPECT_FALSE(world.look().order);
    world.absorb(Commanded{"radio_opt_set", {}});
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_THAT(world.take_sent(), ElementsAre("timestamp_download", "config_upload"));
    model.call("del_router_from_prj", {});
    world.absorb(Commanded{"del_router_from_prj", {}});
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_EQ(model.value("nx.project.id"), "42");
}

TEST_F(Step, ServersAreNamedOnEachConnection) {
    world.desire.topology_server = {{"server_ip", 1}, {"server_port", 2}};
    EXPECT_EQ(settled(), State::in_sync);
    world.reconnect();
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_EQ(std::ranges::count(world.sent, "server_info"), 2);
}

TEST_F(Step, WaitsForTheIntroductionAndGoesOnWithoutIt) {
    begin_in_sync();
    world.absorb(Online{world.known.number + 1, 5});
    EXPECT_EQ(world.look().at, world.now + introduction_wait);
    world.now += introduction_wait;
    EXPECT_STREQ(world.look().order->name, "timestamp_download");
    World stranger(model, sample_desire());
    stranger.known = {};
    stranger.absorb(Online{1, 1});
    stranger.now += 60;
    EXPECT_FALSE(stranger.look().order);
    EXPECT_EQ(stranger.look().reason, "The device has not told its project yet.");
}

TEST_F(Step, SaysWhyThereIsNothingToDo) {
    Desire desire = sample_desire();
    EXPECT_EQ(next_step({}, desire, 5).state, State::unknown);
    desire.configuration = nullptr;
    World bare(model, desire);
    EXPECT_EQ(bare.settle().state, State::pending);
    EXPECT_EQ(bare.look().reason, "The site has no configuration.");
    bare.desire.problem = "It does not fit.";
    EXPECT_EQ(bare.look().reason, "It does not fit.");
    bare.desire.site = nullptr;
    EXPECT_EQ(bare.look().state, State::none);
    EXPECT_FALSE(bare.look().order || bare.look().at);
}

TEST_F(Step, TheLastStampIsNotGivenTwiceAndAClockSetBackStopsNothing) {
    begin_in_sync();
    world.now -= 30 * day;
    world.configure(changed(world.desire.configuration, "/reboot", nullptr));
    EXPECT_EQ(settled(), State::in_sync);
    EXPECT_GT(world.known.last_stamp, world.now) << "strictly rising, whatever the clock says";
    world.known.last_stamp = std::numeric_limits<int32_t>::max();
    world.configure(changed(world.desire.configuration, "/reboot", {{"every_minutes", 60}}));
    EXPECT_EQ(settled(), State::differs);
}

TEST(Known, IsKeptAsTextWithoutAnyPassPhrase) {
    Model model;
    World world(model, sample_desire());
    model.edit("wl2g.ssid0.wpapsk_psk", "left-by-others");
    model.edit("wl2g.ssid0.security", "wpapsk");
    while (world.look().state != State::in_sync) {
        world.turn();
        const std::string text = text_of(world.known);
        EXPECT_EQ(text.find("welcome"), std::string::npos);
        EXPECT_EQ(text.find("left-by"), std::string::npos);
        EXPECT_EQ(text_of(known_of(text)), text);
    }
    EXPECT_EQ(known_of(R"({"session": 3, "later": 1})").session, 3);
    for (const char *text : {"", "[]", "7", R"({"session": "x"})", R"({"todo": 1})"}) {
        EXPECT_THROW(known_of(text), nlohmann::json::exception) << text;
    }
}

}  // namespace

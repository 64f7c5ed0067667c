/**
 * The service with real agents: what it knows of them, commands, sites; on SQLite and on
 * PostgreSQL, over ends and new starts.
 */
#include "tests/controller/running.h"

namespace {

using test::Agent;
using test::Answer;
using test::Json;
using test::Running;
using test::wait_for;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class Fleet : public ::testing::TestWithParam<const char *> {
  protected:
    static std::string database() {
        return GetParam() == std::string("sqlite") ? ""
                                                   : test::Postgres::instance().make_database();
    }

    std::vector<std::string> options() const {
        return {"--broker", broker.url(), "--open", "--poll-status", "1", "--poll-statistics", "1"};
    }

    static auto is(const std::string &member, const Json &value) {
        return [member, value](const Answer &answer) {
            return answer.status == 200 && answer.body.value(member, Json()) == value;
        };
    }

    static Answer command(const Running &service, const std::string &serial, const Json &body,
                          const std::vector<std::string> &headers = {}) {
        return service.http("POST", "/api/v1/devices/" + serial + "/commands", body, headers);
    }

    test::Broker broker;
};

INSTANTIATE_TEST_SUITE_P(On, Fleet, ::testing::Values("sqlite", "postgresql"),
                         [](const auto &row) { return std::string(row.param); });

TEST_P(Fleet, IsHeardAskedAndKept) {
    Agent first(broker.url(), "AP1"), second(broker.url(), "AP2");
    first.vap({"station", "add", first.folder(), "--band", "24", "--ssid", "0"});
    Running service(options(), database());
    const std::string device = "/api/v1/devices/AP1";
    wait_for(service, device, is("state", "online"));
    wait_for(service, "/api/v1/devices/AP2", is("state", "online"));
    const Answer status = wait_for(service, device + "/status", [](const Answer &answer) {
        return answer.status == 200 && answer.body["previous_asked_at"].is_number();
    });
    EXPECT_EQ(status.body["answer"]["run_status"]["user_num"], 1);
    EXPECT_EQ(service.get(device + "/clients").body["items"][0]["assoc_ssid"], "KALDEN");
    EXPECT_EQ(service.get(device + "/radios").body["items"].size(), 2U);
    EXPECT_EQ(service.get(device + "/neighbors").status, 404) << "nobody ordered a scan";
    const Json stays = service.get("/api/v1/clients?q=02:57").body["items"];
    ASSERT_EQ(stays.size(), 1U);
    EXPECT_EQ(stays[0]["serial"], "AP1");
    const Json samples = service.get(device + "/samples?metric=clients&step=3600").body["values"];
    ASSERT_GE(samples.size(), 1U);
    EXPECT_EQ(samples[0][1], 1.0);

    EXPECT_EQ(service.http("PATCH", device, {{"name", "Hall"}, {"tags", {"ground floor"}}}).status,
              200);
    EXPECT_EQ(service.http("PATCH", device, {{"name", "x"}}, {"if-match: \"1\""}).status, 412);
    const auto serials = [&](const std::string &query) {
        std::string found;
        const Json items = service.get("/api/v1/devices" + query).body["items"];
        for (const Json &item : items) {
            found += item["serial"].get<std::string>() + " ";
        }
        return found;
    };
    EXPECT_EQ(serials(""), "AP1 AP2 ");
    EXPECT_EQ(serials("?sort=-serial"), "AP2 AP1 ");
    EXPECT_EQ(serials("?q=GROUND"), "AP1 ");
    EXPECT_EQ(serials("?sort=-name&limit=1"), "AP1 ");
    const std::string next = service.get("/api/v1/devices?sort=-name&limit=1").body["next_cursor"];
    EXPECT_EQ(serials("?sort=-name&limit=1&cursor=" + next), "AP2 ");
    EXPECT_THAT(service.get("/metrics").text,
                AllOf(HasSubstr("norvex_device_up{serial=\"AP1\"} 1"),
                      HasSubstr("norvex_device_clients{serial=\"AP1\",band=\"2.4\"} 1")));

    second.stop();
    wait_for(service, "/api/v1/devices/AP2", is("state", "offline"));
    EXPECT_EQ(serials("?state=offline"), "AP2 ");
    EXPECT_EQ(service.http("DELETE", device).status, 409) << "it is online";
    EXPECT_EQ(service.http("DELETE", "/api/v1/devices/AP2").status, 204);
    EXPECT_TRUE(test::eventually([&] {
        return test::Console(broker, {}, "norvex/v1/AP2/#").received.empty();
    })) << "the broker still has it";
    service.stop(SIGKILL);
    service.start();
    EXPECT_EQ(wait_for(service, device, is("state", "online")).body["name"], "Hall");
    EXPECT_EQ(service.get("/api/v1/devices/AP2").status, 404);
    EXPECT_THAT(service.log(), Not(HasSubstr("database:")));
}

TEST_P(Fleet, CarriesOutCommandsOnce) {
    Agent agent(broker.url(), "AP1");
    Running service(options(), database());
    wait_for(service, "/api/v1/devices/AP1", is("state", "online"));
    const Json locate = {{"command", "dev_locate"}, {"request", {{"op", 1}}}};
    const std::vector<std::string> key{"idempotency-key: k1"};
    const Answer done = command(service, "AP1", locate, key);
    EXPECT_EQ(done.status, 200) << done.text;
    EXPECT_EQ(done.body["resp_code"], 0);
    EXPECT_EQ(done.body["answer"], Json({{"resp_code", 0}}));
    EXPECT_EQ(command(service, "AP1", locate, key).body["id"], done.body["id"]);
    EXPECT_EQ(command(service, "AP1", {{"command", "topo_info"}}, key).status, 422);
    EXPECT_EQ(command(service, "AP1", {{"command", "fly"}}).body["field"], "/command");
    EXPECT_EQ(command(service, "AP1", {{"command", "dev_locate"}, {"request", {{"up", 1}}}}).status,
              422);
    EXPECT_EQ(command(service, "NONE", locate).status, 404);
    const Answer secret = command(
        service, "AP1",
        {{"command", "wlan_config_set"},
         {"request",
          {{"radio1",
            {{{"ssididx", 0}, {"ssidenable", 1}, {"ssid", "x"}, {"passwd", "very secret"}}}}}}});
    EXPECT_EQ(secret.status, 200) << secret.text;

    agent.stop();
    wait_for(service, "/api/v1/devices/AP1", is("state", "offline"));
    EXPECT_EQ(command(service, "AP1", locate).status, 409);
    Json waits = locate;
    waits["queue"] = true;
    const Answer queued = command(service, "AP1", waits, {"idempotency-key: k2"});
    EXPECT_EQ(queued.status, 202) << queued.text;
    EXPECT_EQ(command(service, "AP1", waits, {"idempotency-key: k2"}).body["id"],
              queued.body["id"]);
    const Answer taken_back = command(service, "AP1", waits);
    const std::string commands = "/api/v1/devices/AP1/commands/";
    EXPECT_EQ(service.http("DELETE", commands + taken_back.body["id"].dump()).status, 204);
    EXPECT_EQ(service.http("DELETE", commands + done.body["id"].dump()).status, 409);
    service.stop(SIGKILL);
    service.start();
    agent.start();
    const Answer ended =
        wait_for(service, commands + queued.body["id"].dump(), is("state", "answered"));
    EXPECT_EQ(ended.body["resp_code"], 0);
    const Json history = service.get("/api/v1/devices/AP1/commands").body["items"];
    ASSERT_EQ(history.size(), 4U);
    EXPECT_EQ(history[0]["state"], "cancelled");
    EXPECT_THAT(history.dump(), Not(HasSubstr("very secret")));
    for (const char *file : {"controller.db", "controller.db-wal"}) {
        EXPECT_THAT(test::text_of_file(service.data() / file), Not(HasSubstr("very secret")));
    }
}

TEST_P(Fleet, TellsWhatHappens) {
    Agent agent(broker.url(), "AP1");
    Running service(options(), database());
    wait_for(service, "/api/v1/devices/AP1", is("state", "online"));
    const test::TempFolder folder;
    const std::string told = folder.path() / "events";
    const auto listen = [&](const std::string &last) {
        return std::make_unique<test::Child>(
            std::vector<std::string>{"curl", "-sN", "-H", "last-event-id: " + last,
                                     service.url() + "/api/v1/events"},
            told);
    };
    auto listener = listen("");
    const auto tells = [&](const std::string &text) {
        return test::eventually([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return test::text_of_file(told).find(text) != std::string::npos;
        });
    };
    tells("event: reset");
    agent.vap({"send", agent.folder(), "norvex.log.the door is open"});
    agent.stop();
    tells(R"("state":"offline")");
    const std::string text = test::text_of_file(told);
    const std::string last = text.substr(4, text.find('\n') - 4);
    listener->end(SIGTERM);
    std::filesystem::remove(told);
    listener = listen(last);
    tells(R"("state":"offline")");
    EXPECT_THAT(test::text_of_file(told), Not(HasSubstr("event: reset"))) << "nothing was missed";
    const auto log =
        wait_for(service, "/api/v1/devices/AP1/logs?kind=running",
                 [](const Answer &a) { return a.status == 200 && !a.body["items"].empty(); });
    EXPECT_EQ(log.body["items"][0]["event"], "the door is open");
    EXPECT_EQ(WEXITSTATUS(service.stop()), 0) << "a listener keeps it from ending";
}

const Json configuration = {
    {"ssids",
     {{{"name", "Guests"},
       {"bands", {"2.4", "5"}},
       {"security", "wpa2"},
       {"passphrase", "welcome-2024"}}}},
    {"radios",
     {{"2.4", {{"enabled", true}, {"channel", "auto"}, {"power_dbm", 15}, {"min_signal_dbm", -80}}},
      {"5", {{"enabled", true}, {"channel", 36}, {"power_dbm", 20}, {"min_signal_dbm", -85}}}}},
    {"reboot", nullptr}};

TEST_P(Fleet, ReachesTheConfigurationOfItsSite) {
    Agent agent(broker.url(), "AP1");
    Running service(options(), database());
    wait_for(service, "/api/v1/devices/AP1", is("state", "online"));
    const Answer site = service.http(
        "POST", "/api/v1/sites", {{"name", "Office"}, {"project_id", 42}, {"cloud_id", "cloud-7"}});
    ASSERT_EQ(site.status, 201) << site.text;
    const std::string path = "/api/v1/sites/" + site.body["id"].dump();
    EXPECT_EQ(service
                  .http("POST", "/api/v1/sites",
                        {{"name", "Office"}, {"project_id", 1}, {"cloud_id", "c"}})
                  .status,
              409);
    service.http("PATCH", "/api/v1/devices/AP1", {{"site", site.body["id"]}});
    const Answer preview = service.http("POST", path + "/configuration/preview", configuration);
    EXPECT_EQ(preview.body["items"][0]["serial"], "AP1") << preview.text;
    EXPECT_THAT(preview.text, Not(HasSubstr("welcome-2024")));
    EXPECT_EQ(service.get(path + "/configuration").status, 404) << "a preview sets nothing";

    const Answer put = service.http("PUT", path + "/configuration", configuration);
    EXPECT_EQ(put.body, Json({{"version", 1}})) << put.text;
    wait_for(service, "/api/v1/devices/AP1", is("config_state", "in_sync"));
    EXPECT_EQ(service.get("/api/v1/devices/AP1").body["binding"].value("project_id", 0), 42);
    EXPECT_THAT(test::text_of_file(agent.folder() + "/config"),
                AllOf(HasSubstr("wl2g.ssid0.ssid=Guests"),
                      HasSubstr("wl2g.ssid0.wpapsk_psk=welcome-2024")));
    Json again = configuration;
    again["ssids"][0].erase("passphrase");
    again["ssids"][0]["name"] = "Guests";
    again["radios"]["2.4"]["power_dbm"] = 12;
    EXPECT_EQ(service.http("PUT", path + "/configuration", again, {"if-match: \"7\""}).status, 412);
    EXPECT_EQ(service.http("PUT", path + "/configuration", again).body, Json({{"version", 2}}));
    service.stop(SIGKILL);  // at whatever step it is
    service.start();
    test::eventually([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return test::text_of_file(agent.folder() + "/config").find("web_power=12") !=
                   std::string::npos ||
               service.get("/api/v1/devices/AP1").body.value("config_state", "") == "in_sync";
    });
    wait_for(service, "/api/v1/devices/AP1", is("config_state", "in_sync"));
    EXPECT_THAT(test::text_of_file(agent.folder() + "/config"),
                HasSubstr("wl2g.ssid0.wpapsk_psk=welcome-2024"))
        << "a pass phrase that was left out is kept";

    const Answer over = service.http("PUT", "/api/v1/devices/AP1/overrides",
                                     {{"radios", {{"5", {{"channel", 149}}}}}});
    EXPECT_EQ(over.status, 200) << over.text;
    wait_for(service, "/api/v1/devices/AP1/config", [](const Answer &answer) {
        return answer.status == 200 &&
               answer.body["answer"]["wireless"]["radio_config"]["rf_rule"][1]["channel"] == 149;
    });
    wait_for(service, "/api/v1/devices/AP1", is("config_state", "in_sync"));
    for (const char *read :
         {"/api/v1/devices/AP1/config", "/api/v1/audit", "/api/v1/devices/AP1"}) {
        EXPECT_THAT(service.get(read).text, Not(HasSubstr("welcome-2024"))) << read;
    }
    EXPECT_THAT(service.get(path + "/configuration").text, HasSubstr(R"("passphrase_set":true)"));
    for (const char *file : {"controller.db", "controller.db-wal"}) {
        EXPECT_THAT(test::text_of_file(service.data() / file), Not(HasSubstr("welcome-2024")));
    }

    EXPECT_EQ(service.get(path + "/configuration?version=1").body["radios"]["2.4"]["power_dbm"],
              15);
    EXPECT_EQ(service.get(path + "/configuration?version=9").status, 404);
    const std::string back = path + "/configuration/rollback";
    EXPECT_EQ(service.http("POST", back, {{"version", 9}}).status, 404);
    EXPECT_EQ(service.http("POST", back, {{"version", 1}}).body, Json({{"version", 3}}));
    EXPECT_EQ(service.get(path + "/configuration/versions").body["items"].size(), 3U);
    wait_for(service, "/api/v1/devices/AP1/config", [](const Answer &answer) {
        return answer.body["answer"]["wireless"]["radio_config"]["rf_rule"][0]["power"] == 15;
    });
    EXPECT_THAT(test::text_of_file(agent.folder() + "/config"),
                HasSubstr("wl2g.ssid0.wpapsk_psk=welcome-2024"));
    EXPECT_EQ(service.http("DELETE", path).status, 409) << "it has a device";
}

TEST(FleetBrokers, AreManyAndADeviceIsWhereItCameLast) {
    test::Broker one, other;
    Agent agent(one.url() + "," + other.url(), "AP1");
    Running service({"--broker", one.url() + "," + other.url(), "--open", "--poll-status", "1"});
    const auto is_online = [](const Answer &answer) {
        return answer.status == 200 && answer.body["state"] == "online";
    };
    wait_for(service, "/api/v1/devices/AP1", is_online);
    const auto locate = [&] {
        return service
            .http("POST", "/api/v1/devices/AP1/commands",
                  {{"command", "dev_locate"}, {"request", {{"op", 0}}}})
            .status;
    };
    EXPECT_EQ(locate(), 200);
    for (test::Broker *broker : {&one, &other}) {
        broker->stop(SIGKILL);
        EXPECT_TRUE(test::eventually([&] { return locate() == 200; }));
        wait_for(service, "/api/v1/devices/AP1", is_online);
        broker->start();
        test::eventually([&] {
            return service.get("/metrics").text.find("norvex_brokers_up 2") != std::string::npos;
        });
    }
}

TEST(FleetBackup, IsWholeWhileTheServiceRuns) {
    test::Broker broker;
    Agent agent(broker.url(), "AP1");
    Running service({"--broker", broker.url(), "--open", "--poll-status", "1"});
    wait_for(service, "/api/v1/devices/AP1/status",
             [](const Answer &answer) { return answer.status == 200; });
    const test::TempFolder folder;
    const std::string file = folder.path() / "controller.db";
    int status = -1;
    EXPECT_EQ(test::output_of(service.words({"backup", file}), &status), "");
    EXPECT_EQ(status, 0);
    test::output_of(service.words({"backup", file}), &status);
    EXPECT_NE(status, 0) << "it takes the place of an older one";
    service.stop();
    Running copy({"--broker", "mqtt://127.0.0.1:1", "--open"});
    copy.stop();
    const auto overwrite = std::filesystem::copy_options::overwrite_existing;
    std::filesystem::copy(service.data() / "secret.key", copy.data() / "secret.key", overwrite);
    std::filesystem::copy(file, copy.data() / "controller.db", overwrite);
    copy.start();
    EXPECT_EQ(copy.get("/api/v1/devices/AP1/status").status, 200);
}

}  // namespace

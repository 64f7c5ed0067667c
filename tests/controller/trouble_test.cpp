/**
 * The service among devices that send nonsense, and killed in the middle of its work.
 */
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "tests/controller/running.h"

namespace {

using test::Agent;
using test::Answer;
using test::Json;
using test::Running;
using test::wait_for;

constexpr const char *a_status = R"({"online":true,"connection":1,"since":1767225600.5})";

TEST(Trouble, NonsenseOfADeviceHarmsNobody) {
    test::Broker broker;
    Running service({"--broker", broker.url(), "--open"});
    test::eventually([&] { return service.get("/readyz").status == 200; });
    test::Console device(broker);
    const std::string bytes("\xff\xfe\0\x01", 4);
    const std::string deep(100'000, '[');
    for (const char *topic :
         {"status", "up/identity", "up/binding", "up/alarm", "up/system_log", "up/running_log",
          "up/manage", "up/config", "up/whatever", "up/", "rsp/controller/answer"}) {
        for (const std::string &text :
             {bytes, deep, std::string("{}"), std::string("[]"), std::string("null"),
              std::string(R"({"online":1})"), std::string(R"({"online":true,"since":"x"})"),
              std::string(R"({"online":true,"since":1e308,"connection":-1})"),
              std::string(R"({"serial":7,"model":[],"mac":null,"firmware_version":{}})"),
              std::string(R"({"alarm":[1,{"event":2},{"event":"a\u0000b","timestamp":"x"}]})"),
              std::string(R"({"sys_log":[null,{"time":3,"event":"\u0000"}]})")}) {
            device.publish(std::string("norvex/v1/BAD/") + topic, text);
        }
    }
    for (const char *serial : {"", " ", "a b", "\xc3\xa4", "123456789012345678901234567890123"}) {
        device.publish(std::string("norvex/v1/") + serial + "/status", a_status);
    }
    device.publish("norvex/v1/GOOD/status", a_status);
    const auto known = [&](const Answer &answer) {
        device.loop();
        return answer.status == 200;
    };
    wait_for(service, "/api/v1/devices/GOOD", known);
    EXPECT_EQ(service.get("/api/v1/devices").body["total"], 2) << "GOOD and BAD alone";
    for (const char *path : {"", "/logs", "/alarms", "/commands"}) {
        EXPECT_EQ(service.get(std::string("/api/v1/devices/BAD") + path).status, 200) << path;
    }
    EXPECT_EQ(service.log().find("database:"), std::string::npos) << service.log();
}

TEST(Trouble, WhatADeviceSaysAgainIsKeptOnce) {
    test::Broker broker;
    Running service({"--broker", broker.url(), "--open"});
    test::eventually([&] { return service.get("/readyz").status == 200; });
    test::Console device(broker);
    const std::string log =
        R"({"sys_log":[{"event":"System is started","time":"2024-01-01 00:00:05","event_type":"System"},
            {"event":"Cable","time":"2024-01-01 00:00:06","event_type":"WAN"}]})";
    const std::string alarm =
        R"({"alarm":[{"timestamp":1795363448,"event":"CPU uses of the device is 95%"}]})";
    for (int i = 0; i < 3; ++i) {
        device.publish("norvex/v1/SN1/up/system_log", log);
        device.publish("norvex/v1/SN1/up/alarm", alarm);
    }
    device.publish("norvex/v1/SN1/up/running_log", "last");
    const Answer logs = wait_for(service, "/api/v1/devices/SN1/logs", [&](const Answer &answer) {
        device.loop();
        return answer.status == 200 && answer.body["items"].size() > 2;
    });
    EXPECT_EQ(logs.body["items"].size(), 3U) << logs.text;
    const Json alarms = service.get("/api/v1/alarms?state=open").body["items"];
    ASSERT_EQ(alarms.size(), 1U);
    EXPECT_EQ(alarms[0]["at"], 1795363448);
    const std::string path = "/api/v1/alarms/" + alarms[0]["id"].dump() + "/acknowledge";
    EXPECT_EQ(service.http("POST", path).body["acknowledged_by"], "open");
    EXPECT_TRUE(service.get("/api/v1/alarms?state=open").body["items"].empty());
    EXPECT_EQ(service.get("/api/v1/devices/SN1/alarms").body["items"].size(), 1U);
}

class Killed : public ::testing::TestWithParam<const char *> {};

INSTANTIATE_TEST_SUITE_P(On, Killed, ::testing::Values("sqlite", "postgresql"),
                         [](const auto &row) { return std::string(row.param); });

/** What was answered is kept, and nothing is carried out twice. */
TEST_P(Killed, LosesAndRepeatsNoOrder) {
    constexpr int rounds = 6;
    test::Broker broker;
    Agent agent(broker.url(), "AP1");
    Running service(
        {"--broker", broker.url(), "--open", "--poll-status", "1"},
        GetParam() == std::string("sqlite") ? "" : test::Postgres::instance().make_database());
    std::mt19937 chance(20261123);
    std::map<std::string, long long> answered; /**< ids by their keys */
    size_t sent = 0;
    const Json locate = {{"command", "dev_locate"}, {"request", {{"op", 1}}}};
    const std::string path = "/api/v1/devices/AP1/commands";
    const auto is_online = [](const Answer &answer) {
        return answer.status == 200 && answer.body["state"] == "online";
    };
    for (int round = 0; round < rounds; ++round) {
        wait_for(service, "/api/v1/devices/AP1", is_online);
        std::atomic<bool> ends{false};
        std::thread person([&] {
            while (!ends) {
                const std::string key = "key" + std::to_string(++sent);
                const Answer answer =
                    service.http("POST", path, locate, {"idempotency-key: " + key});
                if (answer.status == 200) {
                    answered[key] = answer.body["id"];
                }
            }
        });
        std::this_thread::sleep_for(
            std::chrono::milliseconds(std::uniform_int_distribution<>(50, 500)(chance)));
        service.stop(SIGKILL);
        ends = true;
        person.join();
        service.start();
    }
    wait_for(service, "/api/v1/devices/AP1", is_online);
    EXPECT_GT(answered.size(), static_cast<size_t>(rounds));
    for (const auto &[key, id] : answered) {
        EXPECT_EQ(service.http("POST", path, locate, {"idempotency-key: " + key}).body["id"], id);
    }
    const std::string journal = agent.vap({"journal", agent.folder()});
    size_t done = 0;
    for (size_t at = 0;
         (at = journal.find(R"("send_msg_to_netctrl","args":[37)", at)) != journal.npos; ++at) {
        ++done;
    }
    EXPECT_GE(done, answered.size());
    EXPECT_LE(done, sent) << "a command was carried out twice";
}

}  // namespace

/* Message bus and the topology kernel module. */
#include <cjson/cJSON.h>

#include <thread>

#include "platform/holymsg.h"
#include "platform/systool.h"
#include "tests/support/support.h"

namespace {

using test::Device;
using vap::Json;

constexpr const char *to_module = "net_topo.to_kernel";
constexpr const char *from_module = "net_topo.server_port.from_kernel";

/** What a subscriber was told, and on which thread. */
struct Heard {
    std::vector<std::string> lines;
    std::thread::id thread;

    static void hear(const char *topic, const char *data, int length, void *user) {
        auto *self = static_cast<Heard *>(user);
        EXPECT_EQ(strlen(data), static_cast<size_t>(length));
        self->lines.push_back(std::string(topic) + " " + data);
        self->thread = std::this_thread::get_id();
    }
};

class Bus : public Device {
  protected:
    void start() {
        holymsg_run_async();
        ASSERT_EQ(holymsg_subscribe(from_module, Heard::hear, &heard_), 0);
        vap::clear_journal();
    }

    /** The text of the module's answer to request 4; "(none)" without one. */
    static std::string module_text() {
        const int32_t code = 4;
        cJSON *answer = nullptr;
        const int result = holymsg_publish_and_respond(to_module, &code, sizeof code, &answer);
        EXPECT_EQ(result != 0, answer != nullptr);
        const char *data = cJSON_GetStringValue(cJSON_GetObjectItem(answer, "data"));
        const std::string text = data == nullptr ? "(none)" : data;
        cJSON_Delete(answer);
        return text;
    }

    Heard heard_;
};

TEST_F(Bus, EventsReachTheirSubscribersOnTheBussOwnThread) {
    start();
    Heard other;
    ASSERT_EQ(holymsg_subscribe("another.topic", Heard::hear, &other), 0);
    vap::bus_event(from_module, R"({"port":3})");
    vap::bus_event("another.topic", "x");
    EXPECT_THAT(other.lines, testing::ElementsAre("another.topic x"));
    EXPECT_THAT(heard_.lines, testing::ElementsAre(std::string(from_module) + R"( {"port":3})"));
    EXPECT_NE(heard_.thread, std::this_thread::get_id());
}

TEST_F(Bus, AnEventNeedsARunningBus) {
    EXPECT_THROW(vap::bus_event(from_module, "{}"), std::runtime_error);
}

TEST_F(Bus, TheModuleTellsWhenItsServerPortChanges) {
    start();
    vap::patch_hardware({{"topology", {{"port", 3}, {"if_name", "eth1"}}}});
    EXPECT_THAT(heard_.lines,
                testing::ElementsAre(std::string(from_module) + R"( {"port":3,"if_name":"eth1"})"));
    vap::patch_hardware({{"radios", {{"24", {{"channel", 1}}}}}});
    EXPECT_EQ(heard_.lines.size(), 1U) << "another change is no news";
}

TEST_F(Bus, PublishedMessagesAreJournalledInTheirParts) {
    start();
    std::string message("\x03\x00\x00\x00", 4);
    message += std::string(R"({"server_port":"11812"})") + '\0';
    EXPECT_EQ(holymsg_publish(to_module, message.data(), static_cast<int>(message.size())), 0);
    EXPECT_EQ(holymsg_publish("other", "\xff\x00\x01", 3), 0);
    EXPECT_EQ(holymsg_publish("other", "plain", 6), 0);
    EXPECT_EQ(holymsg_publish("other", "plain", 0), -1);
    EXPECT_EQ(holymsg_publish(nullptr, "plain", 6), -1);
    vap::fail("holymsg_publish");
    EXPECT_EQ(holymsg_publish("other", "again", 6), -1);
    EXPECT_THAT(effects(), testing::ElementsAre(
                               R"(holymsg_publish net_topo.to_kernel 3 {"server_port":"11812"})",
                               "holymsg_publish other ff0001", "holymsg_publish other plain",
                               "holymsg_publish other null 0", "holymsg_publish null null 6",
                               "holymsg_publish other again"));
}

TEST_F(Bus, PublishedTextsReachSubscribersOfTheirTopic) {
    start();
    EXPECT_EQ(holymsg_publish(from_module, "{}", 3), 0);
    vap::settle();
    EXPECT_THAT(heard_.lines, testing::ElementsAre(std::string(from_module) + " {}"));
}

TEST_F(Bus, TheModuleAnswersWhereItsServerLies) {
    start();
    EXPECT_EQ(module_text(), R"({"port":1,"if_name":"eth0"})");
    vap::patch_hardware({{"topology", {{"if_name", nullptr}}}});
    EXPECT_EQ(module_text(), R"({"port":1})");
    vap::patch_hardware({{"topology", {{"data", "{broken"}}}});
    EXPECT_EQ(module_text(), "{broken");
    EXPECT_EQ(vap::journal().back().at("args"), Json::array({to_module, 4}));
}

TEST_F(Bus, ASilentModuleIsWaitedForThreeSeconds) {
    start();
    vap::patch_hardware({{"topology", {{"silent", true}}}});
    EXPECT_EQ(module_text(), "(none)");
    EXPECT_EQ(system_get_uptime(), 3);
    EXPECT_EQ(vap::journal().back().at("result"), 0);
    EXPECT_THAT(heard_.lines, testing::IsEmpty()) << "it does not announce itself either";
}

TEST_F(Bus, ASecondDeviceStartsWithAFreshBus) {
    start();
    vap::open_device(folder() / "ap", {.time = vap::Time::manual});
    EXPECT_THROW(vap::bus_event(from_module, "{}"), std::runtime_error);
    holymsg_run_async();
    vap::bus_event(from_module, "{}");
    EXPECT_THAT(heard_.lines, testing::IsEmpty());
}

}  // namespace

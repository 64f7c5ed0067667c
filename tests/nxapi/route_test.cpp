#include "nxapi/route.h"

#include <gmock/gmock.h>

namespace {

using nxapi::BrokerAddress;
using nxapi::Route;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> book(const std::string &host, std::string &why) {
    if (host == "nowhere") {
        why = "unknown";
        return {};
    }
    return host == "twice" ? std::vector<std::string>{"192.0.2.1", "192.0.2.2"}
                           : std::vector{host + "!"};
}

/** The next stops, "-" for a name without an address and "|" behind each round. */
std::vector<std::string> stops(Route &route, int count) {
    std::vector<std::string> list;
    for (int i = 0; i < count; ++i) {
        std::string why;
        const nxapi::Stop *stop = route.next(why);
        list.push_back(stop == nullptr ? "-" : stop->address);
        EXPECT_EQ(why.empty(), stop != nullptr);
        if (route.is_round_over()) {
            list.emplace_back("|");
        }
    }
    return list;
}

TEST(Route, GoesRoundAllAddressesOfAllBrokers) {
    const std::vector<BrokerAddress> brokers{
        {"one", 1883, false}, {"twice", 1883, false}, {"nowhere", 1883, false}, {"safe", 1, true}};
    Route route(brokers, 1, book);
    EXPECT_THAT(stops(route, 6),
                ElementsAre("192.0.2.1", "192.0.2.2", "-", "safe", "one!", "|", "192.0.2.1"));
    EXPECT_EQ(route.broker().host, "twice");
    EXPECT_THAT(stops(route, 2), ElementsAre("192.0.2.2", "-"));
    route.arrived();  // the round begins anew, not the list
    EXPECT_THAT(stops(route, 5), ElementsAre("safe", "one!", "192.0.2.1", "192.0.2.2", "-", "|"));
}

TEST(Route, SpreadsAFleet) {
    const std::vector<BrokerAddress> brokers{{"a", 1, false}, {"b", 1, false}, {"c", 1, false}};
    std::string why;
    for (unsigned chance = 0; chance < 6; ++chance) {
        Route route(brokers, chance, book);
        ASSERT_NE(route.next(why), nullptr);
        EXPECT_EQ(route.broker().host, brokers[chance % 3].host);
    }
}

TEST(LookUp, GivesLiteralsOrAReason) {
    std::string why;
    EXPECT_THAT(nxapi::look_up("127.0.0.1", why), ElementsAre("127.0.0.1"));
    EXPECT_EQ(why, "");
    EXPECT_THAT(nxapi::look_up("a..b", why), IsEmpty());
    EXPECT_NE(why, "");
}

}  // namespace

#include "ops/stations.h"

#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

std::string mac(int number) {
    char text[18];
    snprintf(text, sizeof text, "02:AA:00:00:%02X:%02X", number >> 8, number & 0xff);
    return text;
}

class Stations : public test::Device {
  protected:
    Stations() {
        set("wl2g.public.enable", "1");
        set("wl5g.public.enable", "1");
        clear_stations();
    }

    static void clear_stations() {
        vap::patch_hardware({{"stations", nullptr}});
        vap::patch_hardware({{"stations", vap::Json::object()}});
    }
    static vap::Json station(int band, int slot) { return {{"band", band}, {"ssid", slot}}; }

    /** Associates stations 1 to `count` with one SSID. */
    static void associate(int count, int band, int slot) {
        vap::Json stations = vap::Json::object();
        for (int i = 1; i <= count; ++i) {
            stations[mac(i)] = station(band, slot);
        }
        vap::patch_hardware({{"stations", stations}});
    }

    static std::string request(const std::vector<std::string> &macs) {
        vap::Json array = vap::Json::array();
        for (const std::string &text : macs) {
            array.push_back({{"mac", text}});
        }
        return array.dump();
    }
    std::vector<std::string> told() { return effects({"sta_kickoff", "sta_link_enable"}); }
    static std::string kickoff(const std::string &mac, int slot, int radio) {
        return "sta_kickoff " + mac + ";1 " + std::to_string(slot) + " " + std::to_string(radio);
    }
    static std::string enable(const std::string &mac, int slot, int radio) {
        return "sta_link_enable " + mac + ";1 " + std::to_string(slot) + " " +
               std::to_string(radio);
    }

    int slot_ = -1;
    int radio_ = -1;
    int find(const std::string &mac) { return find_ssidindex_radio(mac.c_str(), &slot_, &radio_); }
};

TEST_F(Stations, AreFoundOnEverySsid) {
    struct Row {
        int band, slot, radio;
    } const rows[] = {{24, 0, 0}, {24, 7, 0}, {5, 0, 1}, {5, 3, 1}};
    for (const Row &row : rows) {
        clear_stations();
        associate(2, row.band, row.slot);
        EXPECT_EQ(find(mac(2)), 0);
        EXPECT_EQ(slot_, row.slot);
        EXPECT_EQ(radio_, row.radio);
    }
}

TEST_F(Stations, AreNotFoundByAnotherSpellingOrOnARadioThatIsOff) {
    associate(1, 24, 2);
    for (const char *text : {"02:aa:00:00:00:01", "02:AA:00:00:00:02", " "}) {
        EXPECT_EQ(find(text), -1) << text;
    }
    for (const char *off : {"0", "", "no"}) {
        set("wl2g.public.enable", off);
        EXPECT_EQ(find(mac(1)), -1) << off;
    }
    EXPECT_EQ(slot_, -1);
    EXPECT_EQ(radio_, -1);
}

TEST_F(Stations, OfACrowdedSsidAreNotSearched) {
    associate(128, 24, 1);
    EXPECT_EQ(find(mac(128)), 0);
    associate(129, 24, 1);
    EXPECT_EQ(find(mac(1)), -1);
    vap::patch_hardware({{"stations", {{mac(500), station(24, 3)}}}});
    EXPECT_EQ(find(mac(500)), 0) << "other SSIDs are";
}

TEST_F(Stations, AreThrownOutAndLetInAgainAfterFiveSeconds) {
    vap::patch_hardware({{"stations", {{mac(1), station(24, 0)}, {mac(2), station(5, 3)}}}});
    EXPECT_EQ(verdict(force_off, request({mac(1), mac(2)})), 0);
    EXPECT_THAT(told(), ElementsAre(kickoff(mac(1), 0, 0), kickoff(mac(2), 3, 1)));
    EXPECT_EQ(verdict(force_off, request({mac(1)})), 0) << "it is gone now";
    vap::advance(4.9);
    EXPECT_THAT(told(), IsEmpty());
    vap::advance(0.2);
    EXPECT_THAT(told(), ElementsAre(enable(mac(1), 0, 0), enable(mac(2), 3, 1)));
    EXPECT_EQ(find(mac(1)), 0);
}

TEST_F(Stations, BehindAnUnknownOneAreLeftAlone) {
    associate(3, 24, 0);
    struct Row {
        std::string request;
        size_t thrown_out;
    } const rows[] = {
        {request({mac(1), mac(9), mac(2)}), 1},
        {request({"02:aa:00:00:00:02", mac(3)}), 0},  // lower case is nobody
        {R"([{"mac":7},{"mac":"02:AA:00:00:00:02"}])", 0},
        {R"([null,{"mac":"02:AA:00:00:00:02"}])", 0},
        {R"({"a":{"mac":"02:AA:00:00:00:02"}})", 0},  // an object is no list
        {"[]", 0},
        {R"([{"mac":")" + std::string(100'000, 'A') + "\"}]", 0},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(verdict(force_off, row.request), 0);
        EXPECT_THAT(told(), SizeIs(row.thrown_out)) << row.request.substr(0, 60);
        vap::advance(5);
        EXPECT_THAT(told(), SizeIs(row.thrown_out));
    }
    vap::fail("pthread_create");
    EXPECT_EQ(verdict(force_off, "[]"), 0);
    EXPECT_TRUE(vap::forget_faults()) << "nobody waits for nobody";
    manage_locally();
    EXPECT_EQ(verdict(force_off, request({mac(1)})), -1);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Stations, AreLetInAgainWhateverFails) {
    associate(2, 5, 1);
    vap::fail("sta_kickoff");
    vap::fail("pthread_create");
    EXPECT_EQ(verdict(force_off, request({mac(1), mac(2)})), 0);
    EXPECT_THAT(told(), ElementsAre(kickoff(mac(1), 1, 1), kickoff(mac(2), 1, 1),
                                    enable(mac(1), 1, 1), enable(mac(2), 1, 1)))
        << "at once when no thread can wait";
}

TEST_F(Stations, AreThrownOutUpToTheRoomOfTheReleaseList) {
    associate(128, 24, 0);
    vap::patch_hardware({{"stations", {{mac(1000), station(5, 0)}}}});
    std::vector<std::string> macs;
    for (int i = 1; i <= 128; ++i) {
        macs.push_back(mac(i));
    }
    macs.push_back(mac(1000));
    call(force_off, request(macs));
    EXPECT_THAT(told(), SizeIs(128)) << "the last one could not be let in again";
    vap::advance(5);
    EXPECT_THAT(told(), AllOf(SizeIs(128), Each(StartsWith("sta_link_enable"))));
}

TEST_F(Stations, OfAFilterAreListedAsFarAsTheyFit) {
    char text[64] = "";
    EXPECT_EQ(getmacFilterMaclists("wl2g.ssid0.", text, sizeof text), 0);
    EXPECT_STREQ(text, "");
    set("wl2g.ssid0.maclist_num", "3");
    set("wl2g.ssid0.maclist1", "02:AA:00:00:00:01");
    set("wl2g.ssid0.maclist3", "02:AA:00:00:00:03");
    strcpy(text, "before\n");
    EXPECT_EQ(getmacFilterMaclists("wl2g.ssid0.", text, sizeof text), 3);
    EXPECT_STREQ(text, "before\n02:AA:00:00:00:01\n\n02:AA:00:00:00:03\n");
    struct Row {
        const char *count;
        size_t size;
        const char *text;
    } const rows[] = {
        {"2147483647", 18, ""},
        {"2147483647", 19, "02:AA:00:00:00:01\n"},  // to the last byte
        {"-5", 64, ""},
    };
    for (const Row &row : rows) {
        set("wl2g.ssid0.maclist_num", row.count);
        *text = '\0';
        EXPECT_EQ(getmacFilterMaclists("wl2g.ssid0.", text, row.size), atoi(row.count));
        EXPECT_STREQ(text, row.text);
    }
}

}  // namespace

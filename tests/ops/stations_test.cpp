#include "ops/stations.h"

#include <malloc.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

const std::string done = "{\n\t\"resp_code\":\t0\n}";

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
    static ptrdiff_t open_descriptors() { return entries("/proc/self/fd"); }
    static ptrdiff_t threads() { return entries("/proc/self/task"); }

    /** Threads once no more than `expected` are left, which the kernel clears away a
     *  moment after their end; what there is after 5 seconds otherwise. */
    static ptrdiff_t threads_left(ptrdiff_t expected) {
        for (int i = 0; i < 500 && threads() > expected; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return threads();
    }

  private:
    static ptrdiff_t entries(const char *folder) {
        return std::distance(std::filesystem::directory_iterator(folder), {});
    }
};

TEST_F(Stations, AreFoundOnEverySsid) {
    struct Row {
        int band;
        int slot;
        int radio;
    } const rows[] = {{24, 0, 0}, {24, 7, 0}, {5, 0, 1}, {5, 3, 1}};
    for (const Row &row : rows) {
        clear_stations();
        associate(1, row.band, row.slot);
        int slot = -1;
        int radio = -1;
        EXPECT_THAT(
            output_of([&] { EXPECT_EQ(find_ssidindex_radio(mac(1).c_str(), &slot, &radio), 0); }),
            HasSubstr(" : find this station ,radio = " + std::to_string(row.radio) +
                      ",index = " + std::to_string(row.slot) + "\n"));
        EXPECT_EQ(slot, row.slot);
        EXPECT_EQ(radio, row.radio);
    }
}

TEST_F(Stations, AreNotFoundByAnotherSpellingOrOnARadioThatIsOff) {
    associate(1, 24, 2);
    int slot = -1;
    int radio = -1;
    for (const char *text : {"02:aa:00:00:00:01", "02:AA:00:00:00:02", "02AA00000001", " ", ""}) {
        EXPECT_EQ(find_ssidindex_radio(text, &slot, &radio), -1) << text;
    }
    for (const char *off : {"0", "", "no"}) {
        set("wl2g.public.enable", off);
        EXPECT_EQ(find_ssidindex_radio(mac(1).c_str(), &slot, &radio), -1) << off;
    }
    EXPECT_EQ(slot, -1);
    EXPECT_EQ(radio, -1);
}

TEST_F(Stations, OfACrowdedSsidAreNotSearched) {
    int slot = -1;
    int radio = -1;
    associate(128, 24, 1);
    EXPECT_EQ(find_ssidindex_radio(mac(128).c_str(), &slot, &radio), 0);
    associate(129, 24, 1);
    EXPECT_EQ(find_ssidindex_radio(mac(1).c_str(), &slot, &radio), -1);
    vap::patch_hardware({{"stations", {{mac(500), station(24, 3)}}}});
    EXPECT_EQ(find_ssidindex_radio(mac(500).c_str(), &slot, &radio), 0) << "other SSIDs are";
}

TEST_F(Stations, AreThrownOutAndLetInAgainAfterFiveSeconds) {
    vap::patch_hardware({{"stations", {{mac(1), station(24, 0)}, {mac(2), station(5, 3)}}}});
    EXPECT_EQ(call(force_off, request({mac(1), mac(2)})), done);
    EXPECT_THAT(told(), ElementsAre(kickoff(mac(1), 0, 0), kickoff(mac(2), 3, 1)));
    EXPECT_EQ(call(force_off, request({mac(1)})), done) << "it is gone now";
    vap::advance(4.9);
    EXPECT_THAT(told(), IsEmpty());
    vap::advance(0.2);
    EXPECT_THAT(told(), ElementsAre(enable(mac(1), 0, 0), enable(mac(2), 3, 1)));
    int slot = -1;
    int radio = -1;
    EXPECT_EQ(find_ssidindex_radio(mac(1).c_str(), &slot, &radio), 0);
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
        {"[]", 0},
        {"{}", 0},
        {"7", 0},
        {R"([{"mac":")" + std::string(100'000, 'A') + "\"}]", 0},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(call(force_off, row.request), done);
        EXPECT_THAT(told(), SizeIs(row.thrown_out)) << row.request.substr(0, 60);
        vap::advance(5);
        EXPECT_THAT(told(), SizeIs(row.thrown_out));
    }
    EXPECT_THAT(output_of([&] { call(force_off, request({mac(9)})); }),
                HasSubstr(" : Not find this station!\n"));
}

TEST_F(Stations, AreLetInAgainAlsoWhenTheyCouldNotBeThrownOut) {
    associate(1, 5, 1);
    vap::fail("sta_kickoff");
    EXPECT_THAT(output_of([&] { EXPECT_EQ(call(force_off, request({mac(1)})), done); }),
                HasSubstr(" :  kick sta off err!\n"));
    vap::advance(5);
    EXPECT_THAT(told(), ElementsAre(kickoff(mac(1), 1, 1), enable(mac(1), 1, 1)));
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

TEST_F(Stations, AreLetInAtOnceWhenNoThreadCanWaitForThem) {
    associate(2, 24, 0);
    vap::fail("pthread_create");
    EXPECT_EQ(call(force_off, request({mac(1), mac(2)})), done);
    EXPECT_THAT(told(), ElementsAre(kickoff(mac(1), 0, 0), kickoff(mac(2), 0, 0),
                                    enable(mac(1), 0, 0), enable(mac(2), 0, 0)));
}

TEST_F(Stations, AreLeftAloneWhileTheDeviceIsManagedLocally) {
    set("nx.manage.en", "1");
    set("nx.manage.mode", "2");
    associate(1, 24, 0);
    EXPECT_EQ(answer(force_off, request({mac(1)})).at("resp_code"), -1);
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(Stations, LeaveNothingBehindAfterAThousandKickOffs) {
    associate(1, 24, 0);
    const auto kick_off = [&] {
        EXPECT_EQ(call(force_off, request({mac(1)})), done);
        vap::advance(5);
        EXPECT_THAT(told(), SizeIs(2));
    };
    const ptrdiff_t threads_before = threads();
    kick_off();  // the first one fills what is kept for good
    const ptrdiff_t descriptors_before = open_descriptors();
    const size_t bytes_before = mallinfo2().uordblks;
    const test::JsonAllocations allocations;
    for (int i = 0; i < 1000; ++i) {
        kick_off();
    }
    EXPECT_EQ(threads_left(threads_before), threads_before);
    EXPECT_EQ(open_descriptors(), descriptors_before);
    EXPECT_EQ(test::JsonAllocations::live(), 0);
    // One release list kept a time would be four megabytes; the rest is the test's.
    EXPECT_LT(mallinfo2().uordblks, bytes_before + 100'000);
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
    for (const char *count : {"2147483647", "-5"}) {
        set("wl2g.ssid0.maclist_num", count);
        char small[20] = "";
        EXPECT_EQ(getmacFilterMaclists("wl2g.ssid0.", small, sizeof small), atoi(count));
        EXPECT_STREQ(small, *count == '-' ? "" : "02:AA:00:00:00:01\n\n");
    }
}

}  // namespace

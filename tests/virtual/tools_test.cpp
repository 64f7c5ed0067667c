/* `vap station` and `vap image` as a person uses them, on a running device. */
#include <sys/wait.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "paths.h"
#include "platform/wifi.h"
#include "tests/support/support.h"
#include "virtual/platform/image.h"

namespace {

using test::Device;

class Tools : public Device {
  protected:
    /** Exit status of a `vap` command; its output goes to `output_`. */
    int run(const std::string &arguments) {
        const std::string out = (folder() / "output").string();
        const int status =
            std::system((NORVEX_RUN_DIR "/vap " + arguments + " >" + out + " 2>&1").c_str());
        std::ifstream in(out);
        output_.assign(std::istreambuf_iterator<char>(in), {});
        return WEXITSTATUS(status);
    }

    /** Stations of the 5 GHz radio, once there are `wanted` of them. */
    static std::vector<wifi_sta> stations(int wanted) {
        std::vector<wifi_sta> list(WIFI_STATIONS_MAX);
        int count = -1;
        for (int tries = 0; tries < 500 && count != wanted; tries++) {
            count = wifi_get_client_lists(list.data(), "wlan0", WIFI_STATIONS_MAX);
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        list.resize(count);
        return list;
    }

    const std::string device_ = (folder() / "ap").string();
    std::string output_;
};

TEST_F(Tools, StationsComeAndGoWhileTheDeviceRuns) {
    ASSERT_EQ(run("station add " + device_ + " --band 5 --ssid 2 --signal -44"), 0) << output_;
    ASSERT_EQ(run("station add " + device_ + " 02:57:00:00:00:AA --band 5 --up-rate 10"), 0);
    const std::vector<wifi_sta> list = stations(2);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_STREQ(list[0].ifname, "wlan0-va2");
    EXPECT_STREQ(list[0].signal, "-44");
    EXPECT_STREQ(list[1].mac, "02:57:00:00:00:aa");
    EXPECT_STRNE(list[0].ip, list[1].ip);

    ASSERT_EQ(run("station list " + device_), 0);
    EXPECT_THAT(output_, testing::HasSubstr("02:57:00:00:00:aa  band 5   ssid 0"));
    ASSERT_EQ(run("station remove " + device_ + " 02:57:00:00:00:aa"), 0) << output_;
    EXPECT_EQ(stations(1).size(), 1U);
}

TEST_F(Tools, WhatMakesNoSenseIsRefusedWithASentence) {
    ASSERT_EQ(run("station add " + device_ + " 02:57:00:00:00:01"), 0);
    const vap::Json before = vap::hardware();
    struct Row {
        std::string arguments, says;
    };
    for (const Row &row :
         {Row{"station add " + device_ + " 02:57:00:00:00:01", "is there already"},
          Row{"station add " + device_ + " 02:57", "is no MAC address"},
          Row{"station add " + device_ + " --band 5 --ssid 4", "SSIDs 0 to 3"},
          Row{"station add " + device_ + " --band 6", "--band"},
          Row{"station add " + device_ + " --ip 300.1.1.1", "--ip"},
          Row{"station remove " + device_ + " 02:57:00:00:00:09", "is no station"},
          Row{"station list " + device_ + "/nowhere", "cannot read"},
          Row{"image make " + device_ + "/x --size 31", "--size"},
          Row{"image make " + device_ + "/x --size 64 --model 0123456789abcdef", "model"},
          Row{"image make " + device_ + "/nowhere/x --size 64", "cannot write"}}) {
        EXPECT_NE(run(row.arguments), 0) << row.arguments;
        EXPECT_THAT(output_, testing::HasSubstr(row.says)) << row.arguments;
    }
    EXPECT_EQ(vap::hardware(), before);
    EXPECT_FALSE(std::filesystem::exists(device_ + "/x"));
}

TEST_F(Tools, ImagesCanBeWholeOrBroken) {
    const std::string path = device_ + "/root/tmp/image";
    for (const char *broken : {"", " --broken-checksum"}) {
        ASSERT_EQ(run("image make " + path + " --type 5 --size 5000 --model ZX-A5" + broken), 0);
        const std::string image = read_file("/tmp/image");
        const std::span bytes(reinterpret_cast<const uint8_t *>(image.data()), image.size());
        const auto header = vap::image_header(bytes);
        ASSERT_TRUE(header);
        EXPECT_EQ(header->type, 5U);
        EXPECT_EQ(header->length, 5000U);
        EXPECT_EQ(header->model, "ZX-A5");
        EXPECT_EQ(header->checksum == vap::image_checksum(bytes), *broken == '\0');
    }
}

}  // namespace

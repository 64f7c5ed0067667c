#include <filesystem>
#include <fstream>

#include "heap.h"
#include "ops/dev_local_upgrade.h"
#include "ops/image.h"
#include "ops/nx_dev_api.h"
#include "platform/firmware.h"
#include "platform/systool.h"
#include "tests/ops/http_server.h"
#include "tests/support/support.h"

namespace {

using test::Lines;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr int megabyte = 1 << 20;

/** What the firmware library says about the image. */
struct Verdicts {
    int type = FW_TYPE_FULL;
    bool valid = true;
    bool fits = true;
    bool checksum = true;
};

class Upgrade : public test::Device {
  protected:
    static void verdicts(const Verdicts &say) {
        vap::patch_hardware({{"firmware",
                              {{"verdicts",
                                {{"type", say.type},
                                 {"valid", say.valid ? 0 : -1},
                                 {"mtd_size", say.fits ? 0 : -1},
                                 {"crc", say.checksum ? 0 : -1}}}}}});
    }
    static void free_memory(int64_t bytes, int64_t by_stopping = 0) {
        vap::patch_hardware({{"memory", {{"free", bytes}, {"freed_by_stopping", by_stopping}}}});
    }

    void write_image(size_t size) { write_file(image_path, std::string(size, 'i')); }

    /** What the device was told, in order, once all threads have ended. */
    Lines outcome() {
        vap::settle();
        return effects({"doSystemCmd", "systool_kill_all_process", "monitor_stop",
                        "flash_upgradefw_ap", "systool_write_image_ap", "kill",
                        "systool_reboot_if_necessary", "log_debug_print", "dev_upgrade_notice"});
    }

    /** Open descriptors and shared mappings of the image. */
    static std::pair<int, int> held() {
        const std::string image = (vap::folder() / "root/tmp/image").string();
        int descriptors = 0;
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code closed;  // the iterator's own
            descriptors += std::filesystem::read_symlink(entry, closed) == image ? 1 : 0;
        }
        int mappings = 0;
        std::ifstream maps("/proc/self/maps");
        for (std::string line; std::getline(maps, line);) {
            mappings += line.ends_with(image) && line.find(" rw-s ") != line.npos ? 1 : 0;
        }
        return {descriptors, mappings};
    }
};

TEST_F(Upgrade, MeasuresAFile) {
    EXPECT_EQ(get_image_file_size(nullptr), 0U);
    EXPECT_EQ(get_image_file_size(image_path), 0U) << "no file";
    for (const size_t size : {0, 1, 70'000}) {
        write_image(size);
        EXPECT_EQ(get_image_file_size(image_path), size);
    }
}

TEST_F(Upgrade, ChecksAnImage) {
    struct Row {
        Verdicts say;
        int verdict;
    } const rows[] = {
        {{2, true, true, true}, 0},    {{4, true, true, true}, 0},
        {{2, false, true, true}, -1},  {{2, true, false, true}, -3},
        {{4, false, false, true}, -3},  // the last that fails decides
        {{4, false, true, false}, -2}, {{2, true, false, false}, -2},
        {{5, false, true, false}, 0},  // a partition image is only measured
        {{5, true, false, true}, -3},  {{3, true, true, true}, -1},
        {{-2, true, true, true}, -1},
    };
    std::atomic<int> type = 77;
    EXPECT_EQ(nx_flash_check_fw_type_and_crc_ap(nullptr, image_path, &type), -4);
    EXPECT_EQ(type, 77);
    for (const Row &row : rows) {
        verdicts(row.say);
        EXPECT_EQ(nx_flash_check_fw_type_and_crc_ap("image", image_path, &type), row.verdict)
            << "type " << row.say.type << " " << row.say.valid << row.say.fits << row.say.checksum;
        EXPECT_EQ(type, row.say.type);
    }
}

TEST_F(Upgrade, WritesAnImageOfAboutTheAnnouncedSize) {
    verdicts({4});
    struct Row {
        const char *request;
        size_t size;
        bool written;
    } const rows[] = {
        {R"({"length":1000})", 1009, true},
        {R"({"length":1000})", 1010, false},
        {R"({"length":1000})", 991, true},
        {R"({"length":1000})", 990, false},
        {R"({"length":-2147483648})", 1000, false},  // the difference does not wrap
        {"{}", 9, true},
        {"{}", 10, false},
        {"{}", 0, false},  // an empty file is no image
    };
    for (const Row &row : rows) {
        write_image(row.size);
        EXPECT_EQ(verdict(nx_upgrade, row.request), 0);
        EXPECT_EQ(outcome(),
                  row.written ? Lines({"doSystemCmd echo 3 > /proc/sys/vm/drop_caches;free",
                                       "systool_kill_all_process 1 norvex", "monitor_stop norvex",
                                       "flash_upgradefw_ap /tmp/image 4", "kill 1 15"})
                              : Lines())
            << row.request << " " << row.size;
    }
    for (const Verdicts &say :
         {Verdicts{2, true, true, false}, Verdicts{1}, Verdicts{5, true, false}}) {
        write_image(1000);
        verdicts(say);
        EXPECT_EQ(verdict(nx_upgrade, R"({"length":1000})"), 0);
        EXPECT_THAT(outcome(), IsEmpty()) << say.type;
    }
}

TEST_F(Upgrade, RestartsWhenTheWriterFails) {
    write_image(1000);
    verdicts({});
    vap::fail("flash_upgradefw_ap");
    call(nx_upgrade, R"({"length":1000})");
    const Lines told = outcome();
    ASSERT_EQ(told.size(), 6U);
    EXPECT_EQ(told[4], "systool_reboot_if_necessary");
    EXPECT_THAT(told[5], AllOf(HasSubstr("log_debug_print nx_systool_write_image_file"),
                               HasSubstr(" 3 22 upgrade fw is fail.")));
}

TEST_F(Upgrade, HoldsOneImageAtMost) {
    verdicts({1});
    write_image(1000);
    for (int i = 0; i < 3; ++i) {
        call(nx_upgrade, R"({"length":1000})");
        EXPECT_EQ(held(), std::pair(1, 1));
    }
    call(nx_upgrade, R"({"length":2000})");  // refused before it is mapped
    EXPECT_EQ(held(), std::pair(1, 0));
}

TEST_F(Upgrade, TriesTwiceToOpenTheImage) {
    const std::filesystem::path image = vap::folder() / "root/tmp/image";
    verdicts({});
    const long before = system_get_uptime();
    call(nx_upgrade);  // which creates a missing one at once
    EXPECT_NE(status(image).permissions() & std::filesystem::perms::owner_exec,
              std::filesystem::perms::none);
    vap::fail("open", 1, 2);
    EXPECT_EQ(verdict(nx_upgrade, R"({"length":0})"), 0);
    EXPECT_EQ(system_get_uptime() - before, 1);
    EXPECT_FALSE(exists(image));
    EXPECT_THAT(outcome(), IsEmpty());
    EXPECT_EQ(held(), std::pair(0, 0));
    write_image(1000);
    vap::fail("open");
    call(nx_upgrade, R"({"length":1000})");
    EXPECT_THAT(outcome(), Contains("kill 1 15"));
}

class ImageDownload : public Upgrade {
  protected:
    ImageDownload() {
        free_memory(64 * megabyte);
        verdicts({});
    }

    static std::string request(const std::string &url, const vap::Json &size) {
        return vap::Json{{"size", size}, {"url", url}}.dump();
    }
    /** Runs a download to its end. */
    Lines download(const std::string &url, const vap::Json &size) {
        ::testing::internal::CaptureStderr();  // what wget says
        EXPECT_EQ(verdict(dev_local_upgrade, request(url, size)), 0);
        Lines told = outcome();
        ::testing::internal::GetCapturedStderr();
        return told;
    }
    static std::string wget(const std::string &url) {
        return "doSystemCmd wget -T 240 " + url + " -O /tmp/image";
    }
    static std::string notice(int code) {
        return "dev_upgrade_notice {\"resp_code\":" + std::to_string(code) + "}";
    }
};

TEST_F(ImageDownload, MakesRoomOrRefuses) {
    struct Row {
        int64_t size, free, freed;
        bool stops_others, starts;
    } const rows[] = {
        {3'000'000, 1'000'000, 3'048'576, true, true},  // measured again
        {3'000'000, 6'000'000, 0, false, true},
        {3'000'000, 5'999'999, 0, true, true},
        {3'000'000, 4'048'575, 0, true, false},
        {500'000, 1'000'001, 0, false, false},  // room for two images, not for the spare megabyte
        {0, megabyte, 0, false, true},
        {-1, megabyte - 1, 0, false, true},
        {-2'147'483'648, 0, 0, false, true},  // nothing wraps at either end
        {2'147'483'647, 2'147'483'647, 0, true, false},
    };
    for (const Row &row : rows) {
        free_memory(row.free, row.freed);
        EXPECT_EQ(verdict(dev_local_upgrade, request("", row.size)), row.starts ? 0 : -1);
        Lines expected;
        if (row.stops_others) {
            expected.emplace_back("systool_kill_all_process 1 norvex");
        }
        if (row.starts) {
            expected.push_back(notice(908));
        }
        expected.emplace_back("systool_reboot_if_necessary");
        EXPECT_EQ(outcome(), expected) << row.size << " of " << row.free;
    }
    vap::fail("pthread_create");
    EXPECT_EQ(verdict(dev_local_upgrade, request("", 100)), -1);
    EXPECT_THAT(outcome(), IsEmpty());
}

TEST_F(ImageDownload, WritesOnlyAFullImage) {
    const std::string image(5000, 'i');
    const test::HttpServer server({image});
    struct Row {
        Verdicts say;
        int code;
    } const rows[] = {
        {{2}, 0}, {{4}, 0}, {{5}, 0}, {{2, false}, 909}, {{4, true, false}, 909}, {{9}, 909},
    };
    for (const Row &row : rows) {
        verdicts(row.say);
        EXPECT_THAT(
            download(server.url(), 5000),
            ElementsAre(wget(server.url()), notice(row.code),
                        row.say.type == 2 && row.code == 0 ? "systool_write_image_ap /tmp/image 2"
                                                           : "systool_reboot_if_necessary"));
        EXPECT_EQ(read_file(image_path), image);
        EXPECT_EQ(held(), std::pair(0, 0));
    }
    verdicts({});
    vap::fail("open");
    EXPECT_THAT(download(server.url(), 5000), Contains(notice(909)));
    // A transfer beside the download: each writer takes the type found last.
    write_image(1000);
    call(nx_upgrade, R"({"length":1000})");
    EXPECT_THAT(download(server.url(), 5000),
                AllOf(Contains("kill 1 15"), Contains("systool_write_image_ap /tmp/image 2")));
}

TEST_F(ImageDownload, TriesFiveTimes) {
    const test::HttpServer server({"", std::string(5001, 'l'), std::string(4999, 's'),
                                   std::string(1, 's'), std::string(5000, 'i'), ""});
    Lines expected(5, wget(server.url()));
    expected.push_back(notice(0));
    expected.emplace_back("systool_write_image_ap /tmp/image 2");
    EXPECT_EQ(download(server.url(), 5000), expected);
    expected[5] = notice(908);
    expected[6] = "systool_reboot_if_necessary";
    EXPECT_EQ(download(server.url(), 5000), expected);
    EXPECT_THAT(download(server.url(), 0),
                ElementsAre(wget(server.url()), notice(909), expected[6]))
        << "an empty image is none";
    EXPECT_THAT(download(server.url(), nullptr), Contains(notice(908))) << "no size, no image";
}

TEST_F(ImageDownload, NeverHandsTheShellWhatItWouldInterpret) {
    write_image(5000);  // the expected size stands there already: it must not count
    std::vector<std::string> addresses = {
        "",
        "-O/etc/passwd",
        "~root/image",
        "http://127.0.0.1/" + std::string(1024 - 17, 'x'),
        "http://127.0.0.1/\xc3\xa4",
    };
    for (const char character : std::string(" \t\n\r\x01\x7f\"'`$\\;&|<>(){}[]*?!#^")) {
        addresses.push_back("http://127.0.0.1/a" + std::string(1, character) + "b");
    }
    for (const std::string &url : addresses) {
        EXPECT_THAT(download(url, 5000), ElementsAre(notice(908), "systool_reboot_if_necessary"))
            << url;
    }
}

TEST_F(ImageDownload, FetchesPlainAddressesAsTheyStand) {
    vap::fail("doSystemCmd", 1, -1);
    const std::string longest = "http://127.0.0.1/" + std::string(1023 - 17, 'x');
    for (const std::string &url :
         {longest, std::string("https://user:pw@host.example:8443/~fw/a,b+c%20d=e_f-g"),
          std::string("image.bin")}) {
        EXPECT_THAT(download(url, 5000), Contains(wget(url)).Times(5));
    }
}

TEST_F(ImageDownload, TellsTheCloudAlsoWithoutMemory) {
    nx_upgrade_image_download(nullptr);
    EXPECT_THAT(outcome(), ElementsAre(notice(910), "systool_reboot_if_necessary"));
    int code = 910;  // the document itself
    test::fail_each_allocation(
        [] { nx_upgrade_image_download(heap_record<DownloadJob>().release()); },
        [&](bool) {
            EXPECT_THAT(outcome(), Contains(notice(code)));
            code = 908;
        });
    EXPECT_EQ(code, 908);
}

}  // namespace

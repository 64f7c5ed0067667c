#include <filesystem>
#include <fstream>
#include <thread>

#include "heap.h"
#include "ops/dev_local_upgrade.h"
#include "ops/image.h"
#include "ops/nx_dev_api.h"
#include "platform/firmware.h"
#include "tests/ops/http_server.h"
#include "tests/support/support.h"
#include "virtual/ap/device.h"
#include "virtual/ap/image.h"

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

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
    static void free_memory(int64_t bytes) {
        vap::patch_hardware({{"memory", {{"free", bytes}, {"freed_by_stopping", 0}}}});
    }

    void write_image(size_t size) { write_file(image_path, std::string(size, 'i')); }

    /** What the device was told, in order, once all threads have ended. */
    std::vector<std::string> outcome() {
        vap::settle();
        return effects({"doSystemCmd", "systool_kill_all_process", "monitor_stop",
                        "flash_upgradefw_ap", "systool_write_image_ap", "kill",
                        "systool_reboot_if_necessary", "log_debug_print", "dev_upgrade_notice"});
    }

    /** Open descriptors and mappings of the image. */
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
            mappings += line.find(image) != std::string::npos ? 1 : 0;
        }
        return {descriptors, mappings};
    }
};

TEST_F(Upgrade, MeasuresAFile) {
    EXPECT_THAT(output_of([] { EXPECT_EQ(get_image_file_size(image_path), 0U); }),
                HasSubstr(" : Can't open file:/tmp/image\n"));
    for (const size_t size : {0, 1, 70'000}) {
        write_image(size);
        EXPECT_EQ(get_image_file_size(image_path), size);
    }
    EXPECT_THAT(output_of([] { EXPECT_EQ(get_image_file_size(nullptr), 0U); }),
                HasSubstr(" : arg is null.\n"));
}

TEST_F(Upgrade, ChecksAnImage) {
    struct Row {
        Verdicts say;
        int verdict;
    } const rows[] = {
        {{2, true, true, true}, 0},
        {{4, true, true, true}, 0},
        {{2, false, true, true}, -1},
        {{2, true, false, true}, -3},
        {{2, true, true, false}, -2},
        {{4, false, false, true}, -3},  // the last that fails decides
        {{4, false, true, false}, -2},
        {{2, true, false, false}, -2},
        {{4, false, false, false}, -2},
        {{5, true, true, true}, 0},
        {{5, false, true, false}, 0},  // a partition image is only measured
        {{5, true, false, true}, -3},
        {{0, true, true, true}, -1},
        {{3, true, true, true}, -1},
        {{-2, true, true, true}, -1},
    };
    write_image(64);
    for (const Row &row : rows) {
        verdicts(row.say);
        std::atomic<int> type = 77;
        EXPECT_EQ(nx_flash_check_fw_type_and_crc_ap("image", image_path, &type), row.verdict)
            << "type " << row.say.type << " " << row.say.valid << row.say.fits << row.say.checksum;
        EXPECT_EQ(type, row.say.type);
    }
    std::atomic<int> type = 77;
    EXPECT_THAT(output_of([&] {
                    EXPECT_EQ(nx_flash_check_fw_type_and_crc_ap(nullptr, image_path, &type), -4);
                }),
                HasSubstr(" : arg is null.\n"));
    EXPECT_EQ(type, 77);
}

TEST_F(Upgrade, TellsRealImagesApart) {
    constexpr uint32_t length = 10'000;
    vap::patch_hardware({{"firmware", {{"partition_size", length}, {"model", "ZX-A5"}}}});
    const auto image = [](uint32_t type, const std::string &model = "ZX-A5") {
        return vap::make_image(type, length, model);
    };
    std::string broken = image(2);
    vap::break_checksum(broken);
    std::string broken_partition = image(5);
    vap::break_checksum(broken_partition);
    struct Row {
        std::string bytes;
        int verdict;
    } const rows[] = {
        {image(2), 0},
        {image(4), 0},
        {image(2, ""), 0},
        {image(2, "ZX-B1"), -1},
        {vap::make_image(2, length + 1, "ZX-A5"), -3},
        {broken, -2},
        {broken_partition, 0},  // only measured
        {vap::make_image(5, length + 1, ""), -3},
        {image(7), -1},
        {std::string(length, 'x'), -1},
        {"VAPI", -1},
    };
    for (const Row &row : rows) {
        write_file(image_path, row.bytes);
        ImageFile file;
        ASSERT_TRUE(file.open());
        EXPECT_EQ(
            nx_flash_check_fw_type_and_crc_ap(file.map(row.bytes.size()), image_path, &g_fw_type),
            row.verdict)
            << &row - rows;
    }
}

TEST_F(Upgrade, WritesAnImageOfAboutTheAnnouncedSize) {
    verdicts({});
    struct Row {
        const char *request;
        size_t size;
        bool written;
    } const rows[] = {
        {R"({"length":1000})", 1000, true},
        {R"({"length":1000})", 1009, true},
        {R"({"length":1000})", 1010, false},
        {R"({"length":1000})", 991, true},
        {R"({"length":1000})", 990, false},
        {R"({"length":-2147483648})", 1000, false},  // the difference does not wrap
        {R"({"length":"1000"})", 1000, false},
        {"{}", 9, true},
        {"{}", 10, false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.request) + " " + std::to_string(row.size));
        write_image(row.size);
        const std::string output =
            output_of([&] { EXPECT_EQ(answer(nx_upgrade, row.request).at("resp_code"), 0); });
        EXPECT_THAT(output, HasSubstr("read file size:" + std::to_string(row.size) + "\n"));
        if (row.written) {
            EXPECT_THAT(output, HasSubstr(" : check type ok.start upgrade\n"));
            EXPECT_THAT(outcome(),
                        ElementsAre("doSystemCmd echo 3 > /proc/sys/vm/drop_caches;free",
                                    "systool_kill_all_process 1 norvex", "monitor_stop norvex",
                                    "flash_upgradefw_ap /tmp/image 2", "kill 1 15"));
        } else {
            EXPECT_THAT(output, HasSubstr(" : the upgrade_file size is err!\n"));
            EXPECT_THAT(outcome(), IsEmpty());
        }
    }
}

TEST_F(Upgrade, ChangesNothingForARefusedImage) {
    write_image(1000);
    for (const Verdicts &say :
         {Verdicts{2, true, true, false}, Verdicts{1}, Verdicts{5, true, false}}) {
        verdicts(say);
        EXPECT_THAT(output_of([&] { call(nx_upgrade, R"({"length":1000})"); }),
                    HasSubstr(" : Upgrade check_fw error!\n"));
        EXPECT_THAT(outcome(), IsEmpty());
    }
    verdicts({});
    write_image(0);  // an empty file is no image, though "length" 0 is met
    EXPECT_THAT(output_of([&] { call(nx_upgrade, "{}"); }),
                AllOf(HasSubstr(" : arg is null.\n"), HasSubstr(" : Upgrade check_fw error!\n")));
    EXPECT_THAT(outcome(), IsEmpty());
}

TEST_F(Upgrade, TakesTheTypeAlongToTheWriter) {
    write_image(1000);
    for (const int type : {4, 5}) {
        verdicts({type});
        call(nx_upgrade, R"({"length":1000})");
        EXPECT_THAT(outcome(), Contains("flash_upgradefw_ap /tmp/image " + std::to_string(type)));
    }
}

TEST_F(Upgrade, RestartsWhenTheWriterFails) {
    write_image(1000);
    verdicts({});
    vap::fail("flash_upgradefw_ap");
    call(nx_upgrade, R"({"length":1000})");
    std::vector<std::string> told = outcome();
    ASSERT_THAT(told, SizeIs(6));
    EXPECT_EQ(told[4], "systool_reboot_if_necessary");
    EXPECT_THAT(told[5], AllOf(HasSubstr("log_debug_print nx_systool_write_image_file"),
                               HasSubstr(" 3 22 upgrade fw is fail.")));
    EXPECT_THAT(told, Not(Contains("kill 1 15")));
}

TEST_F(Upgrade, HoldsOneImageAtMost) {
    verdicts({1});
    write_image(1000);
    for (int i = 0; i < 20; ++i) {
        call(nx_upgrade, R"({"length":1000})");
        EXPECT_EQ(held(), std::pair(1, 1));
    }
    call(nx_upgrade, R"({"length":2000})");  // refused before it is mapped
    EXPECT_EQ(held(), std::pair(1, 0));
}

TEST_F(Upgrade, TriesTwiceToOpenTheImage) {
    verdicts({});
    std::filesystem::create_directories(vap::folder() / "root/tmp/image");
    const double before = vap::uptime();
    EXPECT_THAT(
        output_of([&] { EXPECT_EQ(answer(nx_upgrade, R"({"length":0})").at("resp_code"), 0); }),
        AllOf(HasSubstr(" : creat tmp/image error.\n"),
              HasSubstr(" : creat tmp/image error again.\n")));
    EXPECT_EQ(vap::uptime() - before, 1);
    EXPECT_THAT(outcome(), IsEmpty());
    EXPECT_EQ(held(), std::pair(0, 0));
}

TEST_F(Upgrade, OpensTheImageAtTheSecondTry) {
    verdicts({});
    write_image(1000);
    vap::fail("open");
    EXPECT_THAT(output_of([&] { call(nx_upgrade, R"({"length":1000})"); }),
                AllOf(HasSubstr(" : creat tmp/image error.\n"), Not(HasSubstr("again"))));
    EXPECT_THAT(outcome(), Contains("kill 1 15"));
}

TEST_F(Upgrade, CreatesAMissingImage) {
    verdicts({});
    call(nx_upgrade, R"({"length":0})");
    EXPECT_TRUE(std::filesystem::exists(vap::folder() / "root/tmp/image"));
    EXPECT_THAT(outcome(), IsEmpty());
}

class ImageDownload : public Upgrade {
  protected:
    ImageDownload() { free_memory(64 * megabyte); }

    std::string request(const std::string &url, int64_t size) {
        return vap::Json{{"size", size}, {"url", url}}.dump();
    }
    /** Runs a download to its end. */
    std::vector<std::string> download(const std::string &url, int64_t size) {
        ::testing::internal::CaptureStderr();  // what wget says
        EXPECT_EQ(answer(dev_local_upgrade, request(url, size)).at("resp_code"), 0);
        std::vector<std::string> told = outcome();
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
        int64_t size;
        int64_t free;
        bool stops_others;
        bool starts;
    } const rows[] = {
        {3'000'000, 6'000'000, false, true},
        {3'000'000, 5'999'999, true, true},
        {3'000'000, 5'000'000, true, true},
        {3'000'000, 4'048'576, true, true},
        {3'000'000, 4'048'575, true, false},
        {500'000, 1'000'001, false, false},  // room for two images, not for the spare megabyte
        {0, megabyte, false, true},
        {0, megabyte - 1, false, false},
        {-1, megabyte - 1, false, true},
        {-2'147'483'648, 0, false, true},  // nothing wraps at either end
        {2'147'483'647, 2'147'483'647, true, false},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::to_string(row.size) + " of " + std::to_string(row.free));
        free_memory(row.free);
        const std::string output = output_of([&] {
            EXPECT_EQ(answer(dev_local_upgrade, request("", row.size)).at("resp_code"),
                      row.starts ? 0 : -1);
        });
        std::vector<std::string> expected;
        if (row.stops_others) {
            expected.emplace_back("systool_kill_all_process 1 norvex");
        }
        if (row.starts) {
            expected.push_back(notice(908));
        }
        expected.emplace_back("systool_reboot_if_necessary");
        EXPECT_EQ(outcome(), expected);
        EXPECT_EQ(output.find("must to kill") != std::string::npos, row.stops_others);
        EXPECT_EQ(output.find("no enough space") != std::string::npos, !row.starts);
    }
    free_memory(5'000'000);
    EXPECT_THAT(output_of([&] { call(dev_local_upgrade, request("", 3'000'000)); }),
                AllOf(HasSubstr(" : image size:2929(KB) | free memory size:4882(KB), must to kill "
                                "other processes!!!\n"),
                      HasSubstr(" : get memory success\n")));
    vap::settle();
}

TEST_F(ImageDownload, WritesOnlyAFullImage) {
    const std::string image(5000, 'i');
    const test::HttpServer server({image});
    for (const int type : {2, 4, 5}) {
        verdicts({type});
        EXPECT_THAT(download(server.url(), 5000),
                    ElementsAre(wget(server.url()), notice(0),
                                type == 2 ? "systool_write_image_ap /tmp/image 2"
                                          : "systool_reboot_if_necessary"));
        EXPECT_EQ(read_file(image_path), image);
        EXPECT_EQ(held(), std::pair(0, 0));
    }
}

TEST_F(ImageDownload, ReportsAnImageThatIsRefused) {
    const test::HttpServer server({std::string(5000, 'i')});
    for (const Verdicts &say : {Verdicts{2, false}, Verdicts{4, true, false},
                                Verdicts{2, true, true, false}, Verdicts{9}}) {
        verdicts(say);
        EXPECT_THAT(download(server.url(), 5000),
                    ElementsAre(wget(server.url()), notice(909), "systool_reboot_if_necessary"));
    }
}

TEST_F(ImageDownload, TriesFiveTimes) {
    verdicts({});
    const test::HttpServer server({std::string(4999, 's')});
    std::vector<std::string> expected(5, wget(server.url()));
    expected.push_back(notice(908));
    expected.emplace_back("systool_reboot_if_necessary");
    std::vector<std::string> told;
    EXPECT_THAT(output_of([&] { told = download(server.url(), 5000); }),
                HasSubstr(" : size = 4999\tsize1 = 5000 \n"));
    EXPECT_EQ(told, expected);
    EXPECT_EQ(server.requests(), 5);
}

TEST_F(ImageDownload, RecoversAtTheThirdTry) {
    verdicts({});
    const test::HttpServer server({"", std::string(5001, 'l'), std::string(5000, 'i')});
    std::vector<std::string> expected(3, wget(server.url()));
    expected.push_back(notice(0));
    expected.emplace_back("systool_write_image_ap /tmp/image 2");
    EXPECT_EQ(download(server.url(), 5000), expected);
}

TEST_F(ImageDownload, GivesUpWhereNobodyListens) {
    verdicts({});
    std::vector<std::string> told;
    const std::string url = test::deserted_url();
    output_of([&] { told = download(url, 5000); });
    EXPECT_EQ(std::ranges::count(told, wget(url)), 5);
    EXPECT_EQ(told.at(5), notice(908));
}

TEST_F(ImageDownload, SaysThatNoFileCame) {
    // The shell cannot be started: nothing appears where the image should be.
    vap::fail("doSystemCmd", 1, -1);
    EXPECT_THAT(output_of([&] { download("http://127.0.0.1/x", 5000); }),
                HasSubstr(" : image file not exit, continue!\n"));
}

TEST_F(ImageDownload, ChecksAnEmptyImageWithoutMappingIt) {
    verdicts({});
    const test::HttpServer server({""});
    std::vector<std::string> told;
    EXPECT_THAT(
        output_of([&] { told = download(server.url(), 0); }),
        AllOf(HasSubstr(" : arg is null.\n"), HasSubstr(" : check /var/image type invalid.\n")));
    EXPECT_THAT(told, Contains(notice(909)));
    EXPECT_THAT(download(server.url(), -1), Contains(notice(908))) << "no file is that small";
}

TEST_F(ImageDownload, ReportsAnImageThatCannotBeOpened) {
    verdicts({});
    const test::HttpServer server({std::string(5000, 'i')});
    vap::fail("open");
    std::vector<std::string> told;
    EXPECT_THAT(output_of([&] { told = download(server.url(), 5000); }),
                HasSubstr(" : creat /var/image error.\n"));
    EXPECT_THAT(told, Contains(notice(909)));
}

TEST_F(ImageDownload, NeverHandsTheShellWhatItWouldInterpret) {
    verdicts({});
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
    const auto run = [](bool with_job) {
        Heap<DownloadJob> job = with_job ? heap_record<DownloadJob>() : nullptr;
        nx_upgrade_image_download(job.release());
    };
    run(false);
    EXPECT_THAT(outcome(), ElementsAre(notice(910), "systool_reboot_if_necessary"));
    bool first = true;  // the document itself
    const int runs =
        test::fail_each_allocation([&] { run(true); },
                                   [&](bool) {
                                       EXPECT_THAT(outcome(), Contains(notice(first ? 910 : 908)));
                                       first = false;
                                   });
    EXPECT_GT(runs, 2);
}

TEST_F(ImageDownload, FailsWhenItsThreadCannotStart) {
    vap::fail("pthread_create");
    EXPECT_EQ(answer(dev_local_upgrade, request("", 100)).at("resp_code"), -1);
    EXPECT_THAT(outcome(), IsEmpty());
}

TEST_F(ImageDownload, LeavesTheLatestImageToTheWriters) {
    // A transfer and a download at once: each writer takes the type found last.
    verdicts({});
    const test::HttpServer server({std::string(5000, 'i')});
    write_image(1000);
    call(nx_upgrade, R"({"length":1000})");
    EXPECT_THAT(download(server.url(), 5000),
                AllOf(Contains("kill 1 15"), Contains("systool_write_image_ap /tmp/image 2")));
}

}  // namespace

/* Checks of real images and the flash. */
#include "platform/firmware.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/support.h"
#include "virtual/platform/image.h"

namespace {

using test::Device;

constexpr const char *path = "/tmp/image";

struct Verdicts {
    int type, valid, mtd_size, crc;
    bool operator==(const Verdicts &) const = default;
};

class Firmware : public Device {
  protected:
    /** What the library says of the bytes at the image path, mapped as the agent
     *  maps them. */
    Verdicts judge(const std::string &bytes, int type) {
        write_file(path, bytes);
        const int fd = open((vap::folder() / "root/tmp/image").c_str(), O_RDWR | O_CLOEXEC);
        void *image = mmap(nullptr, bytes.size(), PROT_READ, MAP_SHARED, fd, 0);
        close(fd);
        EXPECT_NE(image, MAP_FAILED);
        const Verdicts verdicts{check_fw_type_ap(image), check_fw_valid_ap(type, path),
                                check_mtd_size_ap(type, path), check_fw_crc_ap(type, image)};
        munmap(image, bytes.size());
        return verdicts;
    }

    static std::string flash() {
        std::ifstream in(vap::folder() / "flash", std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

void PrintTo(const Verdicts &v, std::ostream *out) {
    *out << v.type << " " << v.valid << " " << v.mtd_size << " " << v.crc;
}

TEST_F(Firmware, ChecksJudgeTheRealBytes) {
    const std::string good = vap::make_image(4, 10'000, "ZX-A5");
    const auto changed = [&](size_t at, int by) {
        std::string image = good;
        image[at] = static_cast<char>(image[at] + by);
        return image;
    };
    const struct {
        const char *why;
        std::string bytes;
        Verdicts expected;
    } rows[] = {
        {"whole", good, {4, 0, 0, 0}},
        {"for any model", vap::make_image(4, 10'000, ""), {4, 0, 0, 0}},
        {"for another model", vap::make_image(4, 10'000, "ZX-A1"), {4, -1, 0, 0}},
        {"of another type", vap::make_image(2, 10'000, ""), {2, -1, 0, -1}},
        {"only a header", vap::make_image(4, 32, ""), {4, 0, 0, 0}},
        {"no magic", changed(0, 1), {0, -1, 0, -1}},
        {"first byte of the content", changed(32, 1), {4, 0, 0, -1}},
        {"last byte", changed(9'999, 1), {4, 0, 0, -1}},
        {"a letter of the model", changed(16, 1), {4, -1, 0, -1}},
        {"cut", good.substr(0, 9'000), {4, -1, 0, -1}},
        {"cut by a page", good.substr(0, 4'096), {4, -1, 0, -1}},
        {"cut in the header", good.substr(0, 20), {4, -1, 0, -1}},
        {"one byte", good.substr(0, 1), {0, -1, 0, -1}},
        {"longer than it says", good + "12345", {4, -1, 0, 0}},
        {"a length far past its end", changed(11, 127), {4, -1, 0, -1}},
        {"a length below the header's", changed(9, -39), {4, -1, 0, -1}},
        {"no image at all", std::string(5'000, 'x'), {0, -1, 0, -1}},
        {"larger than the flash", vap::make_image(4, (16 << 20) + 1, ""), {4, 0, -1, 0}},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(judge(row.bytes, 4), row.expected) << row.why;
    }
}

/** Another download may write the same file while its old mapping is checked. */
TEST_F(Firmware, AFileThatChangesUnderItsMappingIsNotReadPastIt) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    for (const size_t later : {size_t{100}, 8 * page}) {
        write_file(path, vap::make_image(4, static_cast<uint32_t>(4 * page), ""));
        const std::string file = vap::folder() / "root/tmp/image";
        const int fd = open(file.c_str(), O_RDWR | O_CLOEXEC);
        // The page behind the mapping is one that nobody may read.
        auto *room = static_cast<char *>(
            mmap(nullptr, 5 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        void *image = mmap(room, 4 * page, PROT_READ, MAP_SHARED | MAP_FIXED, fd, 0);
        close(fd);
        std::filesystem::resize_file(file, later);
        const std::string longer = vap::make_image(4, static_cast<uint32_t>(8 * page), "");
        if (later > page) {
            std::ofstream(file, std::ios::in | std::ios::binary) << longer;
        }
        EXPECT_EQ(check_fw_crc_ap(4, image), -1) << later;
        munmap(room, 5 * page);
    }
}

TEST_F(Firmware, AMissingFileFailsEveryCheck) {
    const std::string image = vap::make_image(2, 100, "");
    EXPECT_EQ(check_fw_valid_ap(2, path), -1);
    EXPECT_EQ(check_mtd_size_ap(2, path), -1);
    EXPECT_EQ(check_fw_crc_ap(2, image.data()), -1);
    EXPECT_EQ(check_fw_valid_ap(2, nullptr), -1);
    EXPECT_EQ(check_fw_type_ap(nullptr), 0);
}

TEST_F(Firmware, VerdictsCanBeGivenAndPlanned) {
    const std::string good = vap::make_image(2, 100, "");
    vap::patch_hardware(
        {{"firmware",
          {{"verdicts", {{"type", 5}, {"valid", -3}, {"mtd_size", -4}, {"crc", -5}}}}}});
    EXPECT_EQ(judge(good, 2), (Verdicts{5, -3, -4, -5}));
    vap::patch_hardware({{"firmware", {{"verdicts", nullptr}}}});
    vap::fail("check_fw_crc_ap");
    EXPECT_EQ(judge(good, 2), (Verdicts{2, 0, 0, -1}));
    EXPECT_EQ(judge(good, 2), (Verdicts{2, 0, 0, 0}));
}

TEST_F(Firmware, FlashIsReplacedWholeOrNotAtAll) {
    const std::string old = vap::make_image(2, 400, "");
    write_file(path, old);
    ASSERT_EQ(flash_upgradefw_ap(path, 2), 0);
    EXPECT_EQ(flash(), old);
    EXPECT_EQ(effects({"flash_upgradefw_ap"}),
              std::vector<std::string>{"flash_upgradefw_ap /tmp/image 2"});

    write_file(path, vap::make_image(2, 500, ""));
    vap::fail("flash_upgradefw_ap");
    EXPECT_EQ(flash_upgradefw_ap(path, 2), -1);
    vap::patch_hardware({{"firmware", {{"partition_size", 499}}}});
    EXPECT_EQ(flash_upgradefw_ap(path, 2), -1) << "too large";
    write_file(path, "");
    EXPECT_EQ(flash_upgradefw_ap(path, 2), -1) << "empty";
    EXPECT_EQ(flash_upgradefw_ap("/tmp/file_topo", 2), -1) << "missing";
    EXPECT_EQ(flash(), old);
}

}  // namespace

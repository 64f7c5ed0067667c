#include "fuzz/support.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "core/cloud_api.h"
#include "net/net_api.h"
#include "ops/nx_dev_api.h"
#include "virtual/ap/vap.h"
#include "virtual/nxapi/local.h"
#include "wireless/wireless_api.h"

namespace fuzz {
namespace {

/** A folder in memory where there is one: the target writes to it all the time. */
struct Folder {
    Folder() {
        const char *base = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        std::string pattern = std::string(base) + "/norvex-fuzz-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            abort();
        }
        path = pattern;
        vap::create_device(path / "ap", {.serial = "FUZZ00000001"});
        vap::open_device(path / "ap", {.time = vap::Time::manual, .restarts_process = false});
        nxapi::begin_local([](const nxapi::Upload &) { return 0; });
        cloud_api();
        dev_api();
        net_api();
        wireless_api();
    }
    ~Folder() {
        vap::close_device();
        nxapi::end_local();
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::filesystem::path path;
};

}  // namespace

void device() {
    static const Folder folder;
    vap::clear_journal();
}

std::string text_of(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    return text.c_str();
}

void write_file(const char *device_path, const uint8_t *data, size_t size) {
    const std::filesystem::path path = vap::folder() / "root" / (device_path + 1);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
}

void command(const std::string &family, int slot, const std::string &request) {
    nxapi::call(family, slot, request.c_str());
    vap::advance(60);
}

}  // namespace fuzz

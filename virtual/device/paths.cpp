/**
 * The fixed paths of the device that stand for files of the folder.
 */
#include <fnmatch.h>

#include <algorithm>

#include "virtual/device/device.h"

namespace vap {
namespace {

/** A star stands for one name. */
constexpr const char *device_paths[] = {
    "/etc/lldpd.conf",
    "/etc/lldpd.write",
    "/etc/lan.ini",
    "/etc/nxapi.conf",
    "/etc/nxapi/*",  // certificates of the cloud library
    "/tmp/image",
    "/tmp/auto.socket",
    "/tmp/wirestation",
    "/tmp/file_topo",
    "/tmp/config.export",
    "/var/norvex_socket",
    "/var/network_check_result.cfg",
    "/proc/rtl865x/asicCounter",
    "/proc/*/ch_util",
};

}  // namespace

bool is_device_path(const std::string &path) {
    return std::ranges::any_of(device_paths, [&](const char *pattern) {
        return fnmatch(pattern, path.c_str(), FNM_PATHNAME | FNM_PERIOD | FNM_NOESCAPE) == 0;
    });
}

}  // namespace vap

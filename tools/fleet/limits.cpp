#include "tools/fleet/limits.h"

#include <sys/resource.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>

#include "virtual/fork_server.h"

namespace fleet {
namespace {

/* What one device takes, measured with the release build and rounded up. */
constexpr double threads_of_one = 6;   /**< the process among them; later one less */
constexpr double memory_of_one = 0.75; /**< MiB, a third of it the kernel's */
constexpr double disk_of_one = 0.1;    /**< MiB, its journal and log still short */
constexpr double files_of_one = 24;

/** Threads of devices that have just started, of the fleet itself, and some to spare. */
constexpr double spare_threads = 256;

/** What the broker has besides its clients, and the fleet's own process. */
constexpr size_t other_descriptors = 64;

double number_in(const std::string &file) {
    double number = std::numeric_limits<double>::infinity();  // "max", or no such limit
    std::ifstream(file) >> number;
    return number == 0 ? std::numeric_limits<double>::infinity() : number;
}

double number_behind(const std::string &file, const std::string &word) {
    std::ifstream text(file);
    for (std::string found; text >> found;) {
        if (double number = 0; found == word && text >> number) {
            return number;
        }
    }
    return 0;
}

/** Processes and threads that there are already: the second half of the fourth field. */
double tasks_now() {
    std::ifstream load("/proc/loadavg");
    std::string word;
    for (int i = 0; i < 4; ++i) {
        load >> word;
    }
    return std::atof(word.substr(word.find('/') + 1).c_str());
}

double may_have(int resource) {
    rlimit limit{};
    getrlimit(static_cast<__rlimit_resource>(resource), &limit);
    return limit.rlim_max == RLIM_INFINITY ? std::numeric_limits<double>::infinity()
                                           : static_cast<double>(limit.rlim_max);
}

std::filesystem::path existing(std::filesystem::path folder) {
    std::error_code error;
    folder = std::filesystem::absolute(folder, error);
    while (!std::filesystem::exists(folder, error) && folder.has_relative_path()) {
        folder = folder.parent_path();
    }
    return folder;
}

void add_task_limits(std::vector<Limit> &all, double needed) {
    const double now = tasks_now();
    for (const auto &[file, taken] : {std::pair("/proc/sys/kernel/pid_max", now),
                                      std::pair("/proc/sys/kernel/threads-max", now),
                                      std::pair("/sys/fs/cgroup/pids.max", 0.0)}) {
        all.push_back({"processes and threads", needed, number_in(file) - taken, "", file});
    }
    all.push_back({"processes and threads", needed, may_have(RLIMIT_NPROC), "", "ulimit -u"});
}

}  // namespace

std::vector<Limit> limits(const Needs &needs) {
    const auto devices = static_cast<double>(needs.devices);
    const auto fresh = static_cast<double>(needs.new_devices);
    std::vector<Limit> all;
    all.push_back({"devices", devices, vap::most_forks, "", "one run, see --slice"});
    add_task_limits(all,
                    threads_of_one * devices + static_cast<double>(needs.brokers) + spare_threads);
    all.push_back({"memory", memory_of_one * devices,
                   number_behind("/proc/meminfo", "MemAvailable:") / 1024, "MiB",
                   "what is available now"});
    const double connections = other_descriptors + (needs.brokers > 0 ? devices : 0);
    all.push_back(
        {"descriptors of one process", connections, may_have(RLIMIT_NOFILE), "", "ulimit -Hn"});
    all.push_back({"open files", 16 * devices,
                   number_in("/proc/sys/fs/file-max") - number_in("/proc/sys/fs/file-nr"), "",
                   "/proc/sys/fs/file-max"});
    struct statvfs disk {};
    if (statvfs(existing(needs.folder).c_str(), &disk) == 0) {
        const std::string where = existing(needs.folder).string();
        all.push_back(
            {"disk", disk_of_one * fresh,
             static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize) / (1 << 20),
             "MiB", where});
        if (disk.f_files > 0) {
            all.push_back({"files on the disk", files_of_one * fresh,
                           static_cast<double>(disk.f_favail), "", where});
        }
    }
    all.push_back({"watches", devices, number_in("/proc/sys/fs/inotify/max_user_watches"), "",
                   "/proc/sys/fs/inotify/max_user_watches"});
    return all;
}

std::vector<std::string> shortages(const std::vector<Limit> &limits) {
    std::vector<std::string> sentences;
    for (const Limit &limit : limits) {
        if (limit.needed > limit.present) {
            char text[256];
            const char *unit = limit.unit.empty() ? "" : " ";
            snprintf(text, sizeof text, "%s: %.0f%s%s are needed, %.0f%s%s are there (%s)",
                     limit.what.c_str(), std::ceil(limit.needed), unit, limit.unit.c_str(),
                     std::max(0.0, limit.present), unit, limit.unit.c_str(), limit.advice.c_str());
            sentences.emplace_back(text);
        }
    }
    return sentences;
}

void raise_descriptors(const Needs &needs) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const auto wanted = static_cast<rlim_t>(needs.devices + other_descriptors);
    limit.rlim_cur = std::min(limit.rlim_max, std::max(limit.rlim_cur, wanted));
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace fleet

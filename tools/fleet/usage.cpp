#include "tools/fleet/usage.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

namespace fleet {
namespace {

/** The number behind a word of a file; 0 when it is not there. */
double number_behind(const std::filesystem::path &file, const std::string &word) {
    std::ifstream text(file);
    for (std::string found; text >> found;) {
        double number = 0;
        if (found == word && text >> number) {
            return number;
        }
    }
    return 0;
}

}  // namespace

double memory_of(pid_t process) {
    return number_behind("/proc/" + std::to_string(process) + "/smaps_rollup", "Pss:");
}

double median_memory(const std::vector<pid_t> &processes) {
    std::vector<double> all;
    for (const pid_t process : processes) {
        if (const double memory = memory_of(process); memory > 0) {
            all.push_back(memory);
        }
    }
    if (all.empty()) {
        return 0;
    }
    const auto middle = all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2);
    std::ranges::nth_element(all, middle);
    return *middle;
}

// The scheduler's own count: what an idle device takes is far below the clock's tick.
Usage::Counts Usage::counts_of(pid_t process) {
    Counts counts;
    std::error_code error;
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    for (std::filesystem::directory_iterator task(tasks, error), end; !error && task != end;
         task.increment(error)) {
        double ran_ns = 0;
        std::ifstream(task->path() / "schedstat") >> ran_ns;
        counts.processor_s += ran_ns / 1e9;
        counts.wakeups += number_behind(task->path() / "status", "voluntary_ctxt_switches:");
    }
    return counts;
}

Usage::Figures Usage::look(const std::vector<pid_t> &processes) {
    std::map<pid_t, Counts> now;
    Counts all;
    Figures figures;
    for (const pid_t process : processes) {
        const Counts counts = counts_of(process);
        now.emplace(process, counts);
        if (const auto before = before_.find(process); before != before_.end()) {
            all.processor_s += std::max(0.0, counts.processor_s - before->second.processor_s);
            all.wakeups += std::max(0.0, counts.wakeups - before->second.wakeups);
            ++figures.processes;
        }
    }
    const auto when = std::chrono::steady_clock::now();
    figures.seconds = std::chrono::duration<double>(when - when_).count();
    if (figures.processes > 0 && figures.seconds > 0) {
        const double share = static_cast<double>(figures.processes) * figures.seconds;
        figures.processor_of_one = all.processor_s / share;
        figures.wakeups_of_one = all.wakeups / share;
    }
    before_ = std::move(now);
    when_ = when;
    return figures;
}

}  // namespace fleet

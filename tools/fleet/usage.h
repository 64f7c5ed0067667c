/**
 * What the processes of a fleet cost, from /proc.
 */
#ifndef TOOLS_FLEET_USAGE_H
#define TOOLS_FLEET_USAGE_H

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <vector>

namespace fleet {

/** Memory of a process with its share of what several have, KiB; 0 when it has ended. */
double memory_of(pid_t process);

/** The median of those; 0 for none. */
double median_memory(const std::vector<pid_t> &processes);

/** What processes did between two looks at them. */
class Usage {
  public:
    struct Figures {
        double processor_of_one = 0; /**< seconds a second */
        double wakeups_of_one = 0;   /**< a second, all threads together */
        double seconds = 0;
        size_t processes = 0; /**< that were there at both looks */
    };

    /** Looks at these processes; the figures since the look before. */
    Figures look(const std::vector<pid_t> &processes);

  private:
    struct Counts {
        double processor_s = 0;
        double wakeups = 0;
    };
    static Counts counts_of(pid_t process);

    std::map<pid_t, Counts> before_;
    std::chrono::steady_clock::time_point when_;
};

}  // namespace fleet

#endif

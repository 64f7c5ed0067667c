/**
 * A run as a person follows it.
 */
#ifndef TOOLS_FLEET_DISPLAY_H
#define TOOLS_FLEET_DISPLAY_H

#include <chrono>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "tools/fleet/figures.h"

namespace fleet {

/** How a run stands. */
struct Standing {
    std::string step; /**< "3 of 9: roam" */
    double seconds = 0;
    double of_seconds = 0; /**< 0: no end is set */
    size_t devices = 0, online = 0, starting = 0, wanted = 0;
    double processor_percent = 0; /**< of one core */
    std::vector<std::string> troubles;
};

/** On a terminal some lines that stay in their place; elsewhere a line every ten seconds. */
class Display {
  public:
    explicit Display(const Figures &figures);
    ~Display();

    /** Says that a step begins. */
    void begin_step(const Standing &standing);

    /** Is it time to show how it stands? */
    bool due() const;
    void show(const Standing &standing);

  private:
    using Clock = std::chrono::steady_clock;

    std::vector<std::string> lines(const Standing &standing);
    std::string plain_line(const Standing &standing) const;
    double rate(const std::string &what, uint64_t count);
    void draw(const std::vector<std::string> &lines);
    void clear();

    const Figures &figures_;
    const bool terminal_;
    Clock::time_point last_;
    double since_last_ = 0;                  /**< seconds */
    std::map<std::string, uint64_t> counts_; /**< at the last showing */
    size_t drawn_ = 0;                       /**< lines on the terminal */
};

}  // namespace fleet

#endif

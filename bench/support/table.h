/**
 * The rows that a benchmark prints: what the agent takes, what a floor takes that
 * was measured in the same run, and the goal.
 */
#ifndef BENCH_SUPPORT_TABLE_H
#define BENCH_SUPPORT_TABLE_H

#include <string>

namespace bench {

enum class Unit { seconds, bytes, per_second, count, factor, percent };

/** What must hold; `none` is printed only. */
struct Goal {
    enum class Of { none, ratio_at_most, ratio_at_least, figure_at_most };
    Of of = Of::none;
    double bound = 0;
};

inline Goal ratio_at_most(double bound) {
    return {Goal::Of::ratio_at_most, bound};
}
inline Goal ratio_at_least(double bound) {
    return {Goal::Of::ratio_at_least, bound};
}
/** On the agent's own figure, in the row's unit. */
inline Goal at_most(double bound) {
    return {Goal::Of::figure_at_most, bound};
}

struct Row {
    std::string what = {};
    Unit unit = Unit::seconds;
    double norvex = 0;
    double floor = 0; /**< 0: there is none */
    Goal goal = {};
};

class Table {
  public:
    /** Prints a row, at once. */
    void add(const Row &row);

    /** Prints a sentence below the last row. */
    void note(const std::string &sentence);

    /** Exit status of the program: 1 when a goal was missed. */
    int status() const { return missed_ ? 1 : 0; }

  private:
    bool missed_ = false;
};

}  // namespace bench

#endif

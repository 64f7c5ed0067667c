#include "bench/support/table.h"

#include <cmath>
#include <cstdio>

namespace bench {
namespace {

std::string text(const char *format, double number) {
    char buffer[64];
    snprintf(buffer, sizeof buffer, format, number);
    return buffer;
}

std::string figure(Unit unit, double number) {
    switch (unit) {
        case Unit::seconds:
            return number < 1e-3  ? text("%.2f us", number * 1e6)
                   : number < 1.0 ? text("%.2f ms", number * 1e3)
                                  : text("%.2f s", number);
        case Unit::bytes:
            return number < 1 << 20 ? text("%.1f KiB", number / 1024)
                                    : text("%.2f MiB", number / (1 << 20));
        case Unit::per_second:
            return number < 10 ? text("%.3f /s", number) : text("%.0f /s", number);
        case Unit::factor:
            return text("%.1f x", number);
        case Unit::percent:
            return text("%.2f %%", number);
        case Unit::count:
            break;
    }
    return text("%.0f", number);
}

bool is_met(const Row &row) {
    const double ratio = row.norvex / row.floor;
    switch (row.goal.of) {
        case Goal::Of::ratio_at_most:
            return ratio <= row.goal.bound;
        case Goal::Of::ratio_at_least:
            return ratio >= row.goal.bound;
        case Goal::Of::figure_at_most:
            return row.norvex <= row.goal.bound;
        case Goal::Of::none:
            break;
    }
    return true;
}

std::string goal_text(const Row &row) {
    switch (row.goal.of) {
        case Goal::Of::ratio_at_most:
            return text("<= %.2f", row.goal.bound);
        case Goal::Of::ratio_at_least:
            return text(">= %.2f", row.goal.bound);
        case Goal::Of::figure_at_most:
            return "<= " + figure(row.unit, row.goal.bound);
        case Goal::Of::none:
            break;
    }
    return "";
}

}  // namespace

void Table::add(const Row &row) {
    const bool has_floor = row.floor > 0;
    const bool judged = row.goal.of != Goal::Of::none;
    const bool met = is_met(row);
    missed_ |= !met;
    printf("%-50s %11s %11s %7s  %-12s %s\n", row.what.c_str(),
           figure(row.unit, row.norvex).c_str(),
           has_floor ? figure(row.unit, row.floor).c_str() : "",
           has_floor ? text("%.2f", row.norvex / row.floor).c_str() : "", goal_text(row).c_str(),
           !judged ? ""
           : met   ? "ok"
                   : "MISSED");
    fflush(stdout);
}

void Table::note(const std::string &sentence) {
    printf("  %s\n", sentence.c_str());
    fflush(stdout);
}

}  // namespace bench

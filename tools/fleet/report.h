/**
 * A run's report: JSON for programs, a table for people.
 */
#ifndef TOOLS_FLEET_REPORT_H
#define TOOLS_FLEET_REPORT_H

#include <filesystem>
#include <string>

#include "tools/fleet/goals.h"

namespace fleet {

struct Report {
    Figures figures;
    std::vector<Verdict> verdicts;
    bool good() const;
};

/** Throws tools::Failure when the file cannot be written. */
void write_report(const std::filesystem::path &file, const Report &report);

/** Reads reports of a run's slices and makes one of them, whose goals it judges anew. Throws
 *  tools::Failure when they are none, or not of the same scenario, seed and speed, or a
 *  slice stands there twice. */
Report merge_reports(const std::vector<std::filesystem::path> &files);

/** At most 80 columns. */
std::string table_of(const Report &report);

}  // namespace fleet

#endif

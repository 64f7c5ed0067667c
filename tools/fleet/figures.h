/**
 * What a run of a fleet amounted to.
 */
#ifndef TOOLS_FLEET_FIGURES_H
#define TOOLS_FLEET_FIGURES_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/fleet/histogram.h"

namespace fleet {

/** All times are real, seconds unless the name says otherwise. */
struct StepFigures {
    std::string name;
    double planned_at = 0; /**< since the begin of the run */
    double began_at = -1;  /**< -1: not at all */
    uint64_t planned = 0;  /**< actions */
    uint64_t done = 0;
    uint64_t awaited = 0; /**< devices that were to come back */
    uint64_t back = 0;
    double to_full = 0; /**< until the last of them was back */
};

struct CallFigures {
    std::string command;
    uint64_t sent = 0;
    uint64_t answered = 0;
    uint64_t refused = 0; /**< of the answers: other than success */
    uint64_t late = 0;    /**< answers behind the time-out */
    uint64_t missing = 0; /**< neither came */
    uint64_t twice = 0;
    uint64_t away = 0; /**< not sent: the device was not online */
    Histogram times;
};

/** A device that ended though nothing in the scenario ended it. */
struct EndFigures {
    std::string serial;
    std::string how;
    std::string last_line;
};

struct Figures {
    std::string scenario;
    uint64_t seed = 0;
    double speed = 1;
    std::string slice = "1/1";
    std::vector<std::string> machines;
    double seconds = 0;
    bool interrupted = false;
    uint64_t devices = 0;
    uint64_t online = 0; /**< at the end, of those that were to be */
    uint64_t lost = 0;
    uint64_t restarts = 0;
    uint64_t registrations = 0;
    double registrations_peak = 0; /**< within a second */
    double registered_within = 0;
    double back_within = 0;
    uint64_t roams = 0;
    uint64_t settings_lost = 0;
    double memory_of_one_kib = 0;
    double memory_kib = 0;         /**< of all, at its highest */
    double wakeups_of_one = -1;    /**< a second; -1: not measured */
    double processor_percent = -1; /**< likewise */
    double processor_peak = 0;     /**< per cent of one core */
    std::vector<StepFigures> steps;
    std::vector<CallFigures> calls;
    std::map<std::string, uint64_t> uploads; /**< by kind */
    std::map<std::string, uint64_t> missing; /**< answers by serial number */
    std::vector<EndFigures> ended;
    std::vector<std::string> not_back; /**< serial numbers */

    /** All commands' times together. */
    Histogram answer_times() const;
};

Json to_json(const Figures &figures);

/** Throws tools::Failure when it is none. */
Figures figures_from(const Json &report);

/** Takes the figures of another slice of the same run in. */
void merge(Figures &into, const Figures &other);

}  // namespace fleet

#endif

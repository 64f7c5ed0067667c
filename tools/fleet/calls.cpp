#include "tools/fleet/calls.h"

#include <algorithm>

namespace fleet {

Calls::Calls(const Scenario &scenario, Figures &figures)
    : figures_(figures),
      timeout_(std::chrono::duration_cast<Clock::duration>(
          std::chrono::duration<double>(scenario.answer_timeout))) {
    for (const Step &step : scenario.steps) {
        if (step.verb == Verb::call) {
            of(step.command);
        }
    }
}

CallFigures &Calls::of(const std::string &command) {
    auto &rows = figures_.calls;
    const auto known = std::ranges::find(rows, command, &CallFigures::command);
    if (known != rows.end()) {
        return *known;
    }
    rows.emplace_back().command = command;
    return rows.back();
}

void Calls::sent(const Step &step, uint32_t device) {
    CallFigures &row = of(step.command);
    ++row.sent;
    calls_.push_back(
        {Clock::now(), device, static_cast<uint16_t>(&row - figures_.calls.data()), State::waits});
}

void Calls::answered(size_t number, bool success) {
    if (number >= calls_.size()) {
        return;
    }
    Call &call = calls_[number];
    CallFigures &row = figures_.calls[call.row];
    if (call.state == State::answered) {
        ++row.twice;
        return;
    }
    if (call.state == State::missing) {
        --row.missing;
        ++row.late;
    }
    call.state = State::answered;
    ++row.answered;
    row.refused += success ? 0U : 1U;
    row.times.add(static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - call.sent).count()));
    while (oldest_ < calls_.size() && calls_[oldest_].state == State::answered) {
        ++oldest_;
    }
}

void Calls::expire() {
    for (; oldest_ < calls_.size() && is_over(calls_[oldest_]); ++oldest_) {
        Call &call = calls_[oldest_];
        if (call.state == State::waits) {
            call.state = State::missing;
            ++figures_.calls[call.row].missing;
        }
    }
}

std::map<uint32_t, uint64_t> Calls::missing() const {
    std::map<uint32_t, uint64_t> devices;
    for (const Call &call : calls_) {
        if (call.state == State::missing) {
            ++devices[call.device];
        }
    }
    return devices;
}

bool Calls::is_over(const Call &call) const {
    return call.state != State::waits || Clock::now() >= call.sent + timeout_;
}

}  // namespace fleet

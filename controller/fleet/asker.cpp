#include "controller/fleet/asker.h"

#include <vector>

namespace fleet {

namespace {
constexpr int first_failure = 0x10; /**< "no matching subscribers" */
}

void Asker::ask(const std::string &serial, Question question, double now, bool urgent) {
    Line &line = lines_[serial];
    const bool idle = line.questions.empty();
    if (urgent && !idle) {
        line.questions.insert(line.questions.begin() + 1, std::move(question));
    } else {
        line.questions.push_back(std::move(question));
    }
    if (idle) {
        send_first(serial, now);
    }
}

void Asker::send_first(const std::string &serial, double now) {
    Line &line = lines_[serial];
    line.since = now;
    line.correlation = std::to_string(++count_);
    if (!send_(serial, line.questions.front(), line.correlation, line.sent)) {
        end(serial, {.end = Outcome::End::offline, .answer = "", .duration_ms = 0}, now);
        return;
    }
    unacknowledged_[{line.sent.broker, line.sent.identifier}] = serial;
}

void Asker::answered(const std::string &serial, const std::string &correlation, int result,
                     const std::string &answer, double now) {
    const auto line = lines_.find(serial);
    if (line == lines_.end() || line->second.correlation != correlation) {
        return;  // too late, or somebody else's
    }
    end(serial,
        {.end = result == 0 ? Outcome::End::answered : Outcome::End::refused,
         .answer = answer,
         .duration_ms = 1000 * (now - line->second.since)},
        now);
}

void Asker::acknowledged(size_t broker, int identifier, int reason, double now) {
    const auto found = unacknowledged_.find({broker, identifier});
    if (found == unacknowledged_.end()) {
        return;
    }
    const std::string serial = found->second;
    unacknowledged_.erase(found);
    if (reason >= first_failure) {
        end(serial, {.end = Outcome::End::offline, .answer = "", .duration_ms = 0}, now);
    }
}

void Asker::end(const std::string &serial, Outcome outcome, double now) {
    const auto line = lines_.find(serial);
    const Question question = std::move(line->second.questions.front());
    line->second.questions.pop_front();
    unacknowledged_.erase({line->second.sent.broker, line->second.sent.identifier});
    const bool more = !line->second.questions.empty();
    if (!more) {
        lines_.erase(line);
    }
    if (more) {
        send_first(serial, now);
    }
    question.hear(outcome);
}

void Asker::tick(double now) {
    std::vector<std::string> late;
    for (const auto &[serial, line] : lines_) {
        if (now >= line.since + line.questions.front().patience_s) {
            late.push_back(serial);
        }
    }
    for (const std::string &serial : late) {
        end(serial,
            {.end = Outcome::End::silent,
             .answer = "",
             .duration_ms = 1000 * (now - lines_[serial].since)},
            now);
    }
}

}  // namespace fleet

#include "tools/fleet/report.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <set>

#include "tools/text.h"
#include "virtual/folder/files.h"
#include "virtual/folder/json.h"

namespace fleet {
namespace {

[[gnu::format(printf, 2, 3)]] void print(std::string &text, const char *format, ...) {
    char line[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    text += line;
}

void print_steps(std::string &text, const Figures &figures) {
    print(text, "\n%-34s %8s %8s %9s %13s\n", "step", "at", "done", "back", "last back in");
    for (const StepFigures &step : figures.steps) {
        print(text, "%s %7.1fs %8s", tools::cell(tools::shown(step.name), 34).c_str(),
              step.planned_at,
              (std::to_string(step.done) +
               (step.done < step.planned ? "/" + std::to_string(step.planned) : ""))
                  .c_str());
        if (step.awaited > 0) {
            print(text, " %9s %11.2f s",
                  (std::to_string(step.back) + "/" + std::to_string(step.awaited)).c_str(),
                  step.to_full);
        }
        text += "\n";
    }
}

void print_calls(std::string &text, const Figures &figures) {
    if (figures.calls.empty()) {
        return;
    }
    print(text, "\n%-19s %6s %8s %7s %4s %7s %5s %7s %7s\n", "command", "sent", "answered",
          "refused", "late", "missing", "away", "p50 ms", "p99 ms");
    for (const CallFigures &call : figures.calls) {
        const auto big = [](uint64_t count) { return static_cast<unsigned long long>(count); };
        print(text, "%s %6llu %8llu %7llu %4llu %7llu %5llu %7.1f %7.1f\n",
              tools::cell(call.command, 19).c_str(), big(call.sent), big(call.answered),
              big(call.refused), big(call.late), big(call.missing), big(call.away),
              call.times.ms(0.5), call.times.ms(0.99));
    }
}

void print_troubles(std::string &text, const Figures &figures) {
    constexpr size_t enough = 10;
    size_t shown = 0;
    for (const EndFigures &end : figures.ended) {
        if (++shown <= enough) {
            text +=
                tools::cell(end.serial + " " + end.how + ": " + tools::shown(end.last_line), 79);
            text.erase(text.find_last_not_of(' ') + 1);
            text += "\n";
        }
    }
    for (const std::string &serial : figures.not_back) {
        if (++shown <= enough) {
            text += serial + " is not online at the end\n";
        }
    }
    for (const auto &[serial, count] : figures.missing) {
        if (++shown <= enough) {
            print(text, "%s left %llu commands without an answer\n", serial.c_str(),
                  static_cast<unsigned long long>(count));
        }
    }
    if (shown > enough) {
        print(text, "and %zu more, see the report as JSON\n", shown - enough);
    }
}

std::string number(double value) {
    char text[32];
    snprintf(text, sizeof text, value < 100 ? "%.3g" : "%.0f", value);
    return text;
}

void print_goals(std::string &text, const std::vector<Verdict> &verdicts) {
    if (verdicts.empty()) {
        return;
    }
    print(text, "\n%-28s %12s %20s\n", "goal", "reached", "wanted");
    for (const Verdict &verdict : verdicts) {
        std::string wanted = verdict.goal.at_least ? ">= " + number(*verdict.goal.at_least) : "";
        if (verdict.goal.at_most) {
            wanted += (wanted.empty() ? "<= " : ", <= ") + number(*verdict.goal.at_most);
        }
        print(text, "%-28s %12s %20s  %s\n", verdict.goal.name.c_str(),
              verdict.figure ? number(*verdict.figure).c_str() : "not measured", wanted.c_str(),
              verdict.met ? "met" : "MISSED");
    }
}

std::pair<std::string, std::string> run_of(const Figures &figures) {
    return {figures.scenario, std::to_string(figures.seed) + " " + std::to_string(figures.speed)};
}

}  // namespace

bool Report::good() const {
    return !figures.interrupted && std::ranges::all_of(verdicts, &Verdict::met);
}

void write_report(const std::filesystem::path &file, const Report &report) {
    Json document = to_json(report.figures);
    for (size_t i = 0; i < report.figures.calls.size(); ++i) {
        const Histogram &times = report.figures.calls[i].times;
        document["calls"][i]["p50_ms"] = times.ms(0.5);
        document["calls"][i]["p99_ms"] = times.ms(0.99);
    }
    document["goals"] = to_json(report.verdicts);
    errno = 0;
    if (!vap::replace_file(file, document.dump(1) + "\n", vap::Lasting::process, 0644)) {
        throw tools::Failure(tools::cannot("write", file));
    }
}

Report merge_reports(const std::vector<std::filesystem::path> &files) {
    Report all;
    std::set<std::string> slices;
    for (const std::filesystem::path &file : files) {
        errno = 0;
        const auto text = vap::read_file(file);
        if (!text) {
            throw tools::Failure(tools::cannot("read", file));
        }
        try {
            const Json document = vap::parse_json(*text);
            Figures figures = figures_from(document);
            if (!slices.insert(figures.slice).second) {
                throw tools::Failure("slice " + figures.slice + " stands there twice");
            }
            if (slices.size() == 1) {
                all.figures = std::move(figures);
                all.verdicts = judge(goals_from(document.at("goals")), all.figures);
                continue;
            }
            if (run_of(figures) != run_of(all.figures) ||
                figures.calls.size() != all.figures.calls.size() ||
                figures.steps.size() != all.figures.steps.size()) {
                throw tools::Failure("this is a report of another run");
            }
            merge(all.figures, figures);
        } catch (const std::exception &error) {
            throw tools::Failure(file.string() + ": " + error.what());
        }
    }
    std::vector<Goal> goals;
    for (const Verdict &verdict : all.verdicts) {
        goals.push_back(verdict.goal);
    }
    all.verdicts = judge(goals, all.figures);
    return all;
}

std::string table_of(const Report &report) {
    const Figures &f = report.figures;
    std::string text;
    print(text, "%s: %llu devices, seed %llu, slice %s, %.1f s%s\n",
          tools::shown(f.scenario).c_str(), static_cast<unsigned long long>(f.devices),
          static_cast<unsigned long long>(f.seed), f.slice.c_str(), f.seconds,
          f.interrupted ? ", INTERRUPTED" : "");
    for (const std::string &machine : f.machines) {
        text += machine + "\n";
    }
    print_steps(text, f);
    print_calls(text, f);
    print(text,
          "\nonline %llu, lost %llu, restarts %llu, registrations %llu (%.0f a second at most), "
          "roams %llu\n",
          static_cast<unsigned long long>(f.online), static_cast<unsigned long long>(f.lost),
          static_cast<unsigned long long>(f.restarts),
          static_cast<unsigned long long>(f.registrations), f.registrations_peak,
          static_cast<unsigned long long>(f.roams));
    text += "uploads";
    for (const auto &[kind, count] : f.uploads) {
        text += " " + tools::shown(kind) + " " + std::to_string(count);
    }
    print(text, "\nmemory of one %.0f KiB, of all %.1f MiB; processor at most %.0f %% of a core\n",
          f.memory_of_one_kib, f.memory_kib / 1024, f.processor_peak);
    print_troubles(text, f);
    print_goals(text, report.verdicts);
    return text;
}

}  // namespace fleet

/*
 * nxctl watch: uploads and presence as they come, for as long as one looks.
 */
#include <algorithm>
#include <ctime>
#include <map>
#include <memory>

#include "nxapi/topics.h"
#include "tools/nxctl_commands.h"
#include "tools/nxctl_fleet.h"
#include "tools/nxctl_options.h"
#include "tools/nxctl_output.h"
#include "tools/text.h"

namespace nxctl {
namespace topics = nxapi::topics;
namespace {

struct WatchWish {
    Filter filter;
    std::vector<std::string> kinds;
    bool json = false;
};

std::vector<std::string> kinds() {
    std::vector<std::string> all{std::string(topics::status)};
    std::ranges::transform(upload_kinds(), std::back_inserter(all), &UploadKind::kind);
    return all;
}

/** Presence is always heard: it tells which of several brokers is to be believed. */
std::vector<std::string> levels(const WatchWish &wish) {
    std::vector<std::string> below{std::string(topics::status)};
    if (wish.kinds.empty()) {
        below.push_back(std::string(topics::uploads) + "#");
    }
    for (const std::string &kind : wish.kinds) {
        if (kind != topics::status) {
            below.push_back(std::string(topics::uploads) + kind);
        }
    }
    return below;
}

std::string local_time() {
    const time_t now = time(nullptr);
    tm parts{};
    char clock[16];
    std::strftime(clock, sizeof clock, "%H:%M:%S", localtime_r(&now, &parts));
    return clock;
}

/** "status" or the kind of an upload; empty for any other topic. */
std::string kind_of(const Place &place) {
    if (place.below == topics::status) {
        return place.below;
    }
    return place.below.starts_with(topics::uploads) ? place.below.substr(topics::uploads.size())
                                                    : "";
}

class Watcher {
  public:
    explicit Watcher(const WatchWish &wish) : wish_(wish) {}

    /** Takes what was there before; what counts of it depends on all of it. */
    void begin(const std::vector<Received> &messages) {
        std::ranges::for_each(messages, [&](const Received &message) { fleet_.take(message); });
        std::ranges::for_each(messages, [&](const Received &message) { take(message); });
    }

    void take(const Received &message) {
        fleet_.take(message);
        const auto place = place_of(message.topic);
        const std::string kind = place ? kind_of(*place) : "";
        if (is_wanted(kind) && wish_.filter.takes(place->serial) && counts(*place, message) &&
            !is_known(message)) {
            print(wish_.json ? as_json(*place, kind, message) : for_people(*place, kind, message));
        }
    }

  private:
    bool is_wanted(const std::string &kind) const {
        return !kind.empty() &&
               (wish_.kinds.empty() || std::ranges::find(wish_.kinds, kind) != wish_.kinds.end());
    }

    /** What is kept on a broker that the device has left does not. */
    bool counts(const Place &place, const Received &message) const {
        const Device &device = fleet_.device(place.serial);
        const bool may_be_old = message.retained || place.below == topics::status;
        return !may_be_old || !device.presence().is_newer_than(device.presence_at(message.broker));
    }

    /** A new connection brings what the broker retains once more. */
    bool is_known(const Received &message) {
        const size_t text = std::hash<std::string>()(message.payload);
        const auto [seen, is_new] = told_.try_emplace(message.topic, text);
        const bool same = !is_new && seen->second == text;
        seen->second = text;
        return message.retained && same;
    }

    static std::string as_json(const Place &place, const std::string &kind,
                               const Received &message) {
        return json_line(
            {{"time", utc_now()},
             {"serial", place.serial},
             {"kind", kind},
             {"earlier", message.retained},
             {"data", kind == topics::status ? parse_json(message.payload).value_or(nullptr)
                                             : upload_value(kind, message.payload)}});
    }

    static std::string for_people(const Place &place, const std::string &kind,
                                  const Received &message) {
        const bool is_status = kind == topics::status;
        std::string what = is_status ? presence_of(message.payload).state() : place.below;
        if (message.payload.empty()) {
            what = is_status ? "forgotten" : place.below + " (forgotten)";
        }
        const std::string heading =
            local_time() + " " + place.serial + " " + what + (message.retained ? " (earlier)" : "");
        const bool body = !is_status && !message.payload.empty();
        return one_row(tools::shown(heading)) + "\n" +
               (body ? upload_text(kind, message.payload) : "");
    }

    const WatchWish &wish_;
    Fleet fleet_;
    std::map<std::string, size_t> told_; /**< the last text of each topic, as its hash */
};

void watch(const Options &options, const WatchWish &wish) {
    Brokers brokers(access_of(options), Loss::tried_again);
    Watcher watcher(wish);
    std::vector<Received> first;
    brokers.on_message = [&](const Received &message) { first.push_back(message); };
    brokers.subscribe(topics_of(wish.filter, levels(wish)));
    watcher.begin(first);
    brokers.on_message = [&](const Received &message) { watcher.take(message); };
    brokers.work([] { return false; }, Clock::time_point::max());
}

}  // namespace

void add_watch_command(CLI::App &app, const Options &options) {
    CLI::App *command = app.add_subcommand("watch", "Prints uploads and presence as they come");
    command->footer(
        "Examples:\n"
        "  nxctl watch SN0001 SN0002\n"
        "  nxctl watch 'SN00*' --kind alarm --kind status\n"
        "  nxctl watch --json | jq -c 'select(.kind == \"running_log\") | [.serial, .data]'");
    const auto wish = std::make_shared<WatchWish>();
    add_serials(*command, wish->filter, options, "Serial numbers and patterns; else all");
    tools::offer(command
                     ->add_option("--kind", wish->kinds,
                                  "Only this kind of upload, or status; may stand several times")
                     ->type_name("KIND")
                     ->expected(1)
                     ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
                     ->check([](const std::string &kind) {
                         const std::vector<std::string> all = kinds();
                         return std::ranges::find(all, kind) != all.end()
                                    ? std::string()
                                    : "there is no kind \"" + kind + "\": they are " +
                                          CLI::detail::join(all, ", ");
                     }),
                 kinds);
    command->add_flag("--json", wish->json, "A JSON object a line");
    command->callback([&options, wish] { watch(options, *wish); });
}

}  // namespace nxctl

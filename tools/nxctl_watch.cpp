/*
 * nxctl watch: uploads and presence as they come, for as long as one looks.
 */
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <thread>

#include "nxapi/topics.h"
#include "tools/nxctl_commands.h"
#include "tools/nxctl_fleet.h"
#include "tools/nxctl_options.h"
#include "tools/nxctl_output.h"
#include "tools/text.h"

namespace nxctl {
namespace topics = nxapi::topics;
namespace {

using std::chrono::seconds;

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

std::vector<std::string> levels(const WatchWish &wish) {
    if (wish.kinds.empty()) {
        return {std::string(topics::status), std::string(topics::uploads) + "#"};
    }
    std::vector<std::string> below;
    for (const std::string &kind : wish.kinds) {
        below.push_back(kind == topics::status ? kind : std::string(topics::uploads) + kind);
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

    void take(const Received &message) {
        const auto place = place_of(message.topic);
        if (!place || !wish_.filter.takes(place->serial) || is_known(message)) {
            return;
        }
        const std::string kind = kind_of(*place);
        if (!kind.empty()) {
            print(wish_.json ? as_json(*place, kind, message) : for_people(*place, kind, message));
        }
    }

  private:
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
    std::map<std::string, size_t> told_; /**< the last text of each topic, as its hash */
};

/** Watches until the connection is lost. */
void watch_once(const Access &access, const WatchWish &wish, Watcher &watcher,
                const std::function<void(const Session &)> &connected) {
    Session session(access);
    session.on_message = [&](const Received &message) { watcher.take(message); };
    session.subscribe(topics_of(wish.filter, levels(wish)));
    connected(session);
    session.work([] { return false; }, Clock::time_point::max());
}

void watch(const Options &options, const WatchWish &wish) {
    constexpr seconds shortest{1};
    constexpr seconds longest{30};
    const Access access = access_of(options);
    Watcher watcher(wish);
    bool was_there = false;
    bool is_said = false;
    seconds pause = shortest;
    for (;;) {
        try {
            watch_once(access, wish, watcher, [&](const Session &session) {
                if (was_there) {
                    std::fprintf(stderr, "nxctl: connected to %s again\n",
                                 session.address().c_str());
                }
                was_there = true;
                is_said = false;
                pause = shortest;
            });
        } catch (const Lost &lost) {
            if (!was_there) {
                throw;
            }
            if (!is_said) {
                std::fprintf(stderr, "nxctl: %s; trying again until it works\n",
                             tools::shown(lost.what()).c_str());
            }
            is_said = true;
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(2 * pause, longest);
    }
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

/*
 * nxctl forget: clears what the broker retains of devices that are gone.
 */
#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <set>

#include "nxapi/topics.h"
#include "tools/nxctl_fleet.h"
#include "tools/nxctl_options.h"
#include "tools/text.h"

namespace nxctl {
namespace topics = nxapi::topics;
namespace {

struct ForgetWish {
    Filter filter;
    bool force = false;
};

/** Topics with a retained text, by serial number. */
using Retained = std::map<std::string, std::vector<std::string>>;

/** What a device may retain lies on these; others are not a console's to clear. */
std::vector<std::string> kept_levels() {
    return {std::string(topics::status), std::string(topics::identity),
            std::string(topics::binding)};
}

/** Clears topics, and waits for the broker's word. */
void clear(Session &session, const std::vector<std::string> &all) {
    std::set<int> open;
    std::string refusal;
    session.on_acknowledged = [&](int identifier, int reason) {
        open.erase(identifier);
        if (reason >= 0x80) {
            refusal = mosquitto_reason_string(reason);
        }
    };
    for (const std::string &topic : all) {
        Sent nothing;
        nothing.topic = topic;
        nothing.retained = true;
        open.insert(session.publish(nothing));
    }
    const auto until = Clock::now() + std::chrono::seconds(30);
    if (!session.work([&] { return open.empty() || !refusal.empty(); }, until)) {
        throw Lost(session.address() + " does not answer");
    }
    if (!refusal.empty()) {
        throw tools::Failure("the broker does not let this console forget devices (" + refusal +
                             ")");
    }
}

void forget(const Options &options, const ForgetWish &wish) {
    Session session(access_of(options));
    Fleet fleet;
    Retained retained;
    session.on_message = [&](const Received &message) {
        fleet.take(message);
        const auto place = place_of(message.topic);
        if (place && message.retained) {
            retained[place->serial].push_back(message.topic);
        }
    };
    session.subscribe(topics_of(wish.filter, kept_levels()));
    session.settle();
    std::vector<std::string> topics;
    std::vector<std::string> gone;
    std::vector<std::string> left;
    for (const auto &[serial, list] : retained) {
        if (!wish.filter.takes(serial)) {
            continue;
        }
        const bool stays = fleet.presence(serial).online == true && !wish.force;
        (stays ? left : gone).push_back(serial);
        if (!stays) {
            topics.insert(topics.end(), list.begin(), list.end());
        }
    }
    clear(session, topics);
    for (const std::string &serial : gone) {
        std::printf("%s\n", tools::shown(serial).c_str());
    }
    if (!left.empty()) {
        throw tools::Failure(
            "not forgotten, for they are online: " + CLI::detail::join(left, ", ") +
            " (--force forgets them until they connect again)");
    }
    for (const std::string &serial : wish.filter.serials) {
        Filter wanted;
        wanted.serials = {serial};
        if (std::ranges::none_of(gone, [&](const auto &one) { return wanted.takes(one); })) {
            throw tools::Failure("the broker knows no device " + serial);
        }
    }
}

}  // namespace

void add_forget_command(CLI::App &app, const Options &options) {
    CLI::App *command =
        app.add_subcommand("forget", "Clears what the broker keeps of devices that are gone");
    command->footer(
        "Examples:\n"
        "  nxctl forget SN0001\n"
        "  nxctl forget 'OLD*'\n"
        "\n"
        "Status, identity and binding of the devices are cleared and their names printed.");
    const auto wish = std::make_shared<ForgetWish>();
    add_serials(*command, wish->filter, options, "Serial numbers and patterns")->required();
    command->add_flag("--force", wish->force, "Also those that are online");
    command->callback([&options, wish] { forget(options, *wish); });
}

}  // namespace nxctl

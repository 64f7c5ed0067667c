/*
 * nxctl forget: clears what brokers retain of devices that are gone.
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

/** A topic with a retained text, and the broker that has it. */
using Kept = std::pair<size_t, std::string>;

/** What a device may retain lies on these; others are not a console's to clear. */
std::vector<std::string> kept_levels() {
    return {std::string(topics::status), std::string(topics::identity),
            std::string(topics::binding)};
}

/** Clears topics, and waits for the brokers' word. */
void clear(Brokers &brokers, const std::vector<Kept> &all) {
    std::set<std::pair<size_t, int>> open;
    std::string refusal;
    brokers.on_acknowledged = [&](size_t broker, int identifier, int reason) {
        open.erase({broker, identifier});
        if (reason >= 0x80) {
            refusal = std::string("the broker does not let this console forget devices (") +
                      mosquitto_reason_string(reason) + ")";
        }
    };
    brokers.on_lost = [&](size_t broker) {
        if (std::erase_if(open, [=](const auto &sent) { return sent.first == broker; }) > 0) {
            refusal = "what " + brokers.address(broker) + " keeps may not be forgotten";
        }
    };
    for (const auto &[broker, topic] : all) {
        Sent nothing;
        nothing.topic = topic;
        nothing.retained = true;
        if (const auto identifier = brokers.publish(broker, nothing)) {
            open.emplace(broker, *identifier);
        }
    }
    const auto until = Clock::now() + std::chrono::seconds(30);
    if (!brokers.work([&] { return open.empty() || !refusal.empty(); }, until)) {
        throw Lost(brokers.address(open.begin()->first) + " does not answer");
    }
    if (!refusal.empty()) {
        throw tools::Failure(refusal);
    }
}

void forget(const Options &options, const ForgetWish &wish) {
    Brokers brokers(access_of(options));
    Fleet fleet;
    std::map<std::string, std::vector<Kept>> retained;  // by serial number
    brokers.on_message = [&](const Received &message) {
        fleet.take(message);
        const auto place = place_of(message.topic);
        if (place && message.retained) {
            retained[place->serial].emplace_back(message.broker, message.topic);
        }
    };
    brokers.subscribe(topics_of(wish.filter, kept_levels()));
    brokers.settle();
    std::vector<Kept> all;
    std::vector<std::string> gone;
    std::vector<std::string> left;
    for (const auto &[serial, list] : retained) {
        if (!wish.filter.takes(serial)) {
            continue;
        }
        const bool stays = fleet.device(serial).presence().online == true && !wish.force;
        (stays ? left : gone).push_back(serial);
        if (!stays) {
            all.insert(all.end(), list.begin(), list.end());
        }
    }
    clear(brokers, all);
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
        app.add_subcommand("forget", "Clears what the brokers keep of devices that are gone");
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

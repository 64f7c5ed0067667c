#include "tools/nxctl_fleet.h"

#include <fnmatch.h>

#include <algorithm>
#include <set>
#include <tuple>

#include "nxapi/topics.h"

namespace nxctl {
namespace topics = nxapi::topics;
namespace {

bool matches(const std::string &pattern, const std::string &text) {
    return fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
}

bool takes_state(const Filter &filter, const Presence &presence) {
    return (!filter.online && !filter.offline) ||
           (presence.online.has_value() && *presence.online == filter.online);
}

}  // namespace

std::optional<Place> place_of(const std::string &topic) {
    const size_t slash = topic.find('/', topics::root.size());
    if (!topic.starts_with(topics::root) || slash == topic.npos) {
        return std::nullopt;
    }
    return Place{topic.substr(topics::root.size(), slash - topics::root.size()),
                 topic.substr(slash + 1)};
}

std::string Presence::state() const {
    return !told ? "unknown" : !online ? "?" : *online ? "online" : "offline";
}

Presence presence_of(const std::string &status) {
    Presence presence;
    presence.told = !status.empty();
    if (const auto told = parse_json(status)) {
        const Json *online = member(*told, "online");
        if (online != nullptr && online->is_boolean()) {
            presence.online = online->get<bool>();
        }
        presence.connection = whole_number(*told, "connection").value_or(0);
        presence.since = number(*told, "since").value_or(0);
    }
    return presence;
}

bool Presence::is_newer_than(const Presence &other) const {
    const auto age = [](const Presence &one) {
        return std::tuple(one.told, one.since, one.connection, one.online == true);
    };
    return age(*this) > age(other);
}

void Device::take(const std::string &below, const Received &message) {
    if (below == topics::status) {
        words_[message.broker].presence = presence_of(message.payload);
    } else if (below == topics::identity) {
        words_[message.broker].identity =
            message.payload.empty() ? Json() : parse_json(message.payload).value_or("?");
    }
}

size_t Device::broker() const {
    const auto newest = std::ranges::max_element(words_, [](const auto &a, const auto &b) {
        return b.second.presence.is_newer_than(a.second.presence);
    });
    return newest == words_.end() ? 0 : newest->first;
}

Presence Device::presence_at(size_t broker) const {
    const auto found = words_.find(broker);
    return found == words_.end() ? Presence() : found->second.presence;
}

Presence Device::presence() const {
    return presence_at(broker());
}

const Json &Device::identity() const {
    static const Json none;
    const auto newest = words_.find(broker());
    if (newest != words_.end() && !newest->second.identity.is_null()) {
        return newest->second.identity;
    }
    const auto any = std::ranges::find_if(
        words_, [](const auto &word) { return !word.second.identity.is_null(); });
    return any == words_.end() ? none : any->second.identity;
}

std::string Device::told(const std::string &name) const {
    const Json &all = identity();
    const bool missing = all.is_null() || (all.is_object() && member(all, name) == nullptr);
    return missing ? "" : text(all, name).value_or("?");
}

void Fleet::take(const Received &message) {
    const auto place = place_of(message.topic);
    if (place && (place->below == topics::status || place->below == topics::identity)) {
        devices_[place->serial].take(place->below, message);
    }
}

const Device &Fleet::device(const std::string &serial) const {
    static const Device unknown;
    const auto found = devices_.find(serial);
    return found == devices_.end() ? unknown : found->second;
}

bool is_pattern(const std::string &serial) {
    return serial.find_first_of("*?[\\") != serial.npos;
}

void check_serial(const std::string &serial) {
    if (serial.empty() || serial.find_first_of("+#/") != serial.npos) {
        throw tools::Misuse("\"" + serial + "\" is no serial number");
    }
}

bool Filter::narrows() const {
    return online || offline || !model.empty() || !firmware.empty();
}

bool Filter::takes(const std::string &serial) const {
    return serials.empty() || std::ranges::any_of(serials, [&](const std::string &wanted) {
               return wanted == serial || (is_pattern(wanted) && matches(wanted, serial));
           });
}

bool Filter::takes(const std::string &serial, const Device &device) const {
    return takes(serial) && takes_state(*this, device.presence()) &&
           (model.empty() || matches(model, device.told("model"))) &&
           (firmware.empty() || matches(firmware, device.told("firmware_version")));
}

void add_filter_options(CLI::App &command, Filter &filter) {
    CLI::Option *online = command.add_flag("--online", filter.online, "Only those that are there");
    command.add_flag("--offline", filter.offline, "Only those that are away")->excludes(online);
    command.add_option("--model", filter.model, "Only those of this model (pattern)")
        ->type_name("PATTERN");
    command.add_option("--firmware", filter.firmware, "Only those with this firmware (pattern)")
        ->type_name("PATTERN");
}

CLI::Option *add_serials(CLI::App &command, Filter &filter, const Options &options,
                         const std::string &description) {
    return tools::offer(command.add_option("SERIAL", filter.serials, description),
                        known_serials(options));
}

tools::Words known_serials(const Options &options) {
    return [&options] {
        Brokers brokers(access_of(options));
        Fleet fleet;
        load(brokers, fleet, {});
        return chosen(fleet, {});
    };
}

std::vector<std::string> topics_of(const Filter &filter, const std::vector<std::string> &below) {
    std::ranges::for_each(filter.serials, check_serial);
    constexpr size_t longest_list = 64;  // a packet has an end
    std::vector<std::string> whom = filter.serials;
    if (whom.empty() || whom.size() > longest_list || std::ranges::any_of(whom, is_pattern)) {
        whom = {"+"};
    }
    std::vector<std::string> topics;
    for (const std::string &serial : whom) {
        for (const std::string &level : below) {
            topics.push_back(topics::of_device(serial, level));
        }
    }
    return topics;
}

void load(Brokers &brokers, Fleet &fleet, const Filter &filter) {
    brokers.on_message = [&fleet](const Received &message) { fleet.take(message); };
    brokers.subscribe(
        topics_of(filter, {std::string(topics::status), std::string(topics::identity)}));
    brokers.settle();
}

std::vector<std::string> chosen(const Fleet &fleet, const Filter &filter) {
    std::vector<std::string> serials;
    std::set<std::string> seen;
    const auto add = [&](const std::string &serial) {
        if (seen.insert(serial).second) {
            serials.push_back(serial);
        }
    };
    for (const std::string &serial : filter.serials) {
        if (!is_pattern(serial) && !filter.narrows()) {
            add(serial);
        }
    }
    for (const auto &[serial, device] : fleet.devices()) {
        if (filter.takes(serial, device)) {
            add(serial);
        }
    }
    return serials;
}

}  // namespace nxctl

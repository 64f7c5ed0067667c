#include "controller/fleet/fleet.h"

#include <algorithm>
#include <chrono>

#include "controller/store/fleet_tables.h"
#include "tools/nxctl_commands.h"

namespace fleet {
namespace {

constexpr size_t most_devices = 50'000;
constexpr size_t longest_serial = 32;
constexpr double settle_s = 2; /**< from a device's first word to the first question */

bool is_serial(const std::string &text) {
    return !text.empty() && text.size() <= longest_serial &&
           std::ranges::all_of(text, [](char letter) { return letter > ' ' && letter < 0x7f; });
}

Json parse(const std::string &text) {
    return Json::parse(text, nullptr, false);
}

}  // namespace

double steady_now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

long long wall_now() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

Fleet::Fleet(store::Database &database, Feed &feed, Send send, Post post, const Schedule &schedule)
    : database_(database),
      feed_(feed),
      send_(std::move(send)),
      post_(std::move(post)),
      schedule_(schedule),
      asker_([this](const std::string &serial, const Question &question,
                    const std::string &correlation, Asker::Sent &sent) {
          const Device *device = find(serial);
          if (device == nullptr || !device->is_online()) {
              return false;
          }
          sent.broker = device->presence.broker;
          return send_(sent.broker,
                       {.serial = serial,
                        .target = question.target,
                        .payload = question.request,
                        .correlation = correlation,
                        .expiry_s = static_cast<int>(question.patience_s)},
                       sent.identifier);
      }) {
    Json rows;
    database.run([&](store::Sql &sql) { rows = store::devices(sql); });
    for (Json &row : rows) {
        Device &device = devices_[row["serial"].get<std::string>()];
        device.serial = row["serial"];
        device.name = row["name"];
        device.tags = row["tags"];
        if (row["site"].is_number()) {
            device.site = row["site"].get<long long>();
        }
        device.identity = row["identity"];
        device.binding = row["binding"];
        device.first_seen = row["first_seen"];
        device.last_seen = row["last_seen"];
        device.version = row["version"];
        device.state_since = device.last_seen;
    }
}

const Device *Fleet::find(const std::string &serial) const {
    const auto found = devices_.find(serial);
    return found == devices_.end() ? nullptr : &found->second;
}

Device &Fleet::device_of(const std::string &serial) {
    const auto [at, is_new] = devices_.try_emplace(serial);
    if (is_new) {
        at->second.serial = serial;
        at->second.first_seen = at->second.last_seen = at->second.state_since = wall_now();
        keep(at->second);
    }
    return at->second;
}

void Fleet::keep(Device &device) {
    device.is_kept = true;
    database_.post([row = row_of(device)](store::Sql &sql) { store::save_device(sql, row); });
}

void Fleet::keep_seen() {
    for (auto &[serial, device] : devices_) {
        if (!device.is_kept) {
            keep(device);
        }
    }
}

void Fleet::edit(const std::string &serial, const std::function<void(Device &)> &change) {
    Device &device = devices_.at(serial);
    change(device);
    ++device.version;
    keep(device);
    feed_.publish("device", {{"serial", serial}});
}

void Fleet::show_config(const std::string &serial, const std::string &state,
                        const std::string &reason, const Json &differences) {
    Device &device = devices_.at(serial);
    const bool changed = device.config_state != state || device.differences != differences;
    device.config_state = state;
    device.config_reason = reason;
    device.differences = differences;
    if (changed) {
        feed_.publish("config_state", {{"serial", serial}, {"config_state", state}});
    }
}

void Fleet::show_binding(const std::string &serial, const Json &members) {
    Device &device = devices_.at(serial);
    Json binding = device.binding;
    binding.update(members);
    if (binding != device.binding) {
        device.binding = std::move(binding);
        keep(device);
        feed_.publish("device", {{"serial", serial}});
    }
}

void Fleet::forget(const std::string &serial) {
    devices_.erase(serial);
    database_.post([serial](store::Sql &sql) { store::forget_device(sql, serial); });
    feed_.publish("device", {{"serial", serial}, {"deleted", true}});
}

void Fleet::on_message(const mqtt::Message &message) {
    if (message.payload.empty() && !message.below.starts_with("rsp/")) {
        return;  // a retained text was taken back
    }
    if (!is_serial(message.serial) ||
        (devices_.size() >= most_devices && !devices_.contains(message.serial))) {
        return;
    }
    Device &device = device_of(message.serial);
    if (message.below == "status") {
        take_status(device, message);
    } else if (message.below.starts_with("up/")) {
        take_upload(device, message.below.substr(3), message.payload);
    } else {
        device.last_seen = wall_now();
        device.is_kept = false;
        asker_.answered(message.serial, message.correlation, message.result, message.payload,
                        steady_now());
    }
}

/** Of several brokers' texts that of the newest connection counts. */
void Fleet::take_status(Device &device, const mqtt::Message &message) {
    const Json text = parse(message.payload);
    if (!text.is_object() || !text.contains("online") || !text["online"].is_boolean()) {
        return;
    }
    const auto number = [&](const char *name) {
        const auto at = text.find(name);
        return at != text.end() && at->is_number() ? at->get<double>() : 0.0;
    };
    Presence told;
    told.state = text["online"].get<bool>() ? State::online : State::offline;
    told.since = number("since");
    told.connection = static_cast<unsigned>(std::clamp(number("connection"), 0.0, 4e9));
    told.broker = message.broker;
    if (!told.is_newer_than(device.presence)) {
        return;
    }
    const bool is_again = told.state == device.presence.state &&
                          told.since == device.presence.since &&
                          told.connection == device.presence.connection;
    const State before = device.presence.state;
    device.presence = told;
    device.presence.state = before;  // which set_state leaves
    if (!is_again) {
        set_state(device, told.state);
    }
}

void Fleet::set_state(Device &device, State state) {
    const State before = std::exchange(device.presence.state, state);
    online_ += state == State::online ? 1U : 0U;
    online_ -= before == State::online ? 1U : 0U;
    device.state_since = wall_now();
    if (state == State::online) {
        device.last_seen = device.state_since;
        for (size_t i = 0; i < reports.size(); ++i) {
            const double spread = std::min(static_cast<double>(schedule_[i]),
                                           settle_s + static_cast<double>(online_) / 100);
            device.due[i] = steady_now() + settle_s + jitter(spread);
        }
    }
    device.is_kept = false;
    feed_.publish(
        "presence",
        {{"serial", device.serial}, {"state", name_of(state)}, {"since", device.state_since}});
    on_change(device.serial, name_of(state), "");
}

/** Without its broker nobody knows of a device what it does. */
void Fleet::on_link(size_t broker, bool up) {
    for (auto &[serial, device] : devices_) {
        if (!up && device.presence.broker == broker && device.is_online()) {
            set_state(device, State::unknown);
        }
    }
}

void Fleet::ask(const std::string &serial, Question question, bool urgent) {
    const nxctl::Command *command = nxctl::find_command(question.target);
    const auto report = std::ranges::find_if(reports, [&](const Report &one) {
        return command != nullptr && one.command == command->name;
    });
    if (report != reports.end()) {  // whoever asked, the answer is kept
        question.hear = [this, serial, report,
                         hear = std::move(question.hear)](const Outcome &outcome) {
            if (outcome.end == Outcome::End::answered && devices_.contains(serial)) {
                keep_answer(serial, *report, outcome.answer);
            }
            hear(outcome);
        };
    }
    asker_.ask(serial, std::move(question), steady_now(), urgent);
}

void Fleet::ask_report(Device &device, size_t index) {
    const nxctl::Command *command = nxctl::find_command(reports[index].command);
    ask(device.serial,
        {.target = command->target(), .request = "", .patience_s = 10, .hear = [](const Outcome &) {
         }});
}

void Fleet::refresh(const std::string &serial, std::string_view report) {
    const auto device = devices_.find(serial);
    for (size_t i = 0; i < reports.size(); ++i) {
        if (device != devices_.end() && reports[i].name == report) {
            device->second.due[i] = 0;
        }
    }
}

void Fleet::tick() {
    const double now = steady_now();
    asker_.tick(now);
    for (auto &[serial, device] : devices_) {
        for (size_t i = 0; device.is_online() && i < reports.size(); ++i) {
            if (schedule_[i] == 0 || now < device.due[i]) {
                continue;
            }
            device.due[i] = now + schedule_[i] * 0.95 + jitter(schedule_[i] * 0.1);
            ask_report(device, i);
        }
    }
}

}  // namespace fleet

#include "controller/converge/converger.h"

#include "controller/store/site_tables.h"

namespace converge {
namespace {

using desired::Json;

constexpr int most_looks = 200; /**< of a tick */

Json parse(const std::string &text) {
    return Json::parse(text, nullptr, false);
}

Json object_or_empty(const std::string &text) {
    Json json = parse(text);
    return json.is_object() ? json : Json::object();
}

}  // namespace

Converger::Converger(store::Database &database, const store::Vault &vault, fleet::Fleet &fleet,
                     fleet::Fleet::Post post)
    : database_(database), vault_(vault), fleet_(fleet), post_(std::move(post)) {
    store::Json sites, devices;
    database.run([&](store::Sql &sql) {
        sites = store::sites(sql);
        devices = store::progress(sql);
    });
    for (const store::Json &row : sites) {
        Site &site = sites_[row["id"].get<long long>()];
        site.id = row["id"];
        site.document = parse(row["document"]);
        site.version = row["version"];
        if (row["sealed"].is_string()) {
            site.configuration = parse(vault.unseal(row["sealed"]));
            site.configuration_version = row["configuration_version"];
        }
    }
    for (const store::Json &row : devices) {
        Progress &progress = progress_[row["serial"].get<std::string>()];
        if (row["knowledge"].is_string()) {
            progress.known = desired::known_of(row["knowledge"]);
        }
        if (row["overrides"].is_string()) {
            progress.overrides = parse(vault.unseal(row["overrides"]));
        }
    }
}

const Site *Converger::site(long long id) const {
    const auto found = sites_.find(id);
    return found == sites_.end() ? nullptr : &found->second;
}

void Converger::set_document(long long id, const Json &document, long long version) {
    if (const auto found = sites_.find(id); found != sites_.end()) {
        found->second.document = document;
        found->second.version = version;
    }
    consider_site(id);
}

void Converger::set_configuration(long long id, const Json &configuration, long long version) {
    const auto found = sites_.find(id);
    if (found != sites_.end() && version > found->second.configuration_version) {
        found->second.configuration = configuration;
        found->second.configuration_version = version;
    }
    consider_site(id);
}

void Converger::consider_site(long long id) {
    for (const auto &[serial, device] : fleet_.devices()) {
        if (device.site == id) {
            consider(serial);
        }
    }
}

Json Converger::overrides(const std::string &serial) const {
    const auto found = progress_.find(serial);
    return found == progress_.end() ? Json() : found->second.overrides;
}

void Converger::set_overrides(const std::string &serial, Json overrides) {
    Progress &progress = progress_[serial];
    progress.overrides = std::move(overrides);
    consider(serial);
}

desired::Desire Converger::desire_of(const fleet::Device &device, const Progress &progress) const {
    desired::Desire desire;
    const Site *found = device.site ? site(*device.site) : nullptr;
    if (found == nullptr) {
        return desire;
    }
    desire.site = found->document;
    if (found->configuration.is_null()) {
        desire.problem = "the site has no configuration yet";
        return desire;
    }
    const desired::Checked merged = desired::merge(found->configuration, progress.overrides);
    if (!merged.ok()) {
        desire.problem =
            "the overrides of the device do not fit: " + merged.problems.front().pointer + " " +
            merged.problems.front().detail;
        return desire;
    }
    desire.configuration = merged.document;
    // The same text after a restart of the service, another one for other overrides.
    desire.version = std::to_string(found->id) + "/" +
                     std::to_string(found->configuration_version) + "/" +
                     (progress.overrides.is_null()
                          ? "0"
                          : store::hash_secret(progress.overrides.dump()).substr(0, 16));
    return desire;
}

void Converger::heard(const std::string &serial, const std::string &what, const std::string &text) {
    if (what == "online") {
        const fleet::Presence &presence = fleet_.find(serial)->presence;
        absorb(serial, desired::Online{presence.connection,
                                       static_cast<int64_t>(presence.since * 1000 + 0.5)});
    } else if (what == "offline" || what == "unknown") {
        absorb(serial, desired::Offline{});
    } else if (what == "identity") {
        absorb(serial, desired::IdentityHeard{});
    } else if (what == "binding") {
        absorb(serial, desired::BindingHeard{object_or_empty(text)});
    } else if (what == "manage") {
        absorb(serial, desired::ManageHeard{object_or_empty(text)});
    }
}

void Converger::commanded(const std::string &serial, const std::string &name,
                          const std::string &request) {
    absorb(serial, desired::Commanded{name, object_or_empty(request)});
}

void Converger::absorb(const std::string &serial, const desired::Event &event) {
    const fleet::Device *device = fleet_.find(serial);
    if (device == nullptr) {
        return;
    }
    Progress &progress = progress_[serial];
    desired::absorb(progress.known, desire_of(*device, progress), event, fleet::wall_now());
    if (const desired::Binding &given = progress.known.given; given.known) {
        fleet_.show_binding(serial, {{"bind_status", given.bound ? 1 : 0},
                                     {"cloud_id", given.cloud_id},
                                     {"cloud_manage", given.managed ? 1 : 2},
                                     {"project_id", given.project_id}});
    }
    if (device->site) {
        keep(serial, progress);
    }
    consider(serial);
}

void Converger::keep(const std::string &serial, const Progress &progress,
                     store::Database::Done done) {
    database_.post([serial, text = desired::text_of(progress.known)](
                       store::Sql &sql) { store::save_knowledge(sql, serial, text); },
                   std::move(done));
}

void Converger::consider(const std::string &serial) {
    progress_[serial].look_at = 0;
}

void Converger::tick() {
    const desired::Time now = fleet::wall_now();
    int looks = 0;
    for (auto &[serial, progress] : progress_) {
        if (now < progress.look_at) {
            continue;
        }
        if (const fleet::Device *device = fleet_.find(serial)) {
            look(*device, progress);
        }
        if (++looks == most_looks) {
            return;
        }
    }
}

void Converger::look(const fleet::Device &device, Progress &progress) {
    const desired::Time now = fleet::wall_now();
    const desired::Desire desire = desire_of(device, progress);
    const desired::Next next = desired::next_step(progress.known, desire, now);
    fleet_.show_config(device.serial, nlohmann::json(next.state), next.reason,
                       nlohmann::json(next.differences));
    progress.look_at = next.at.value_or(now + desired::day);
    if (!next.order) {
        return;
    }
    // What is sent and not remembered would be the one thing that must not happen.
    desired::absorb(progress.known, desire, desired::Sent{*next.order}, now);
    keep(device.serial, progress,
         [this, serial = device.serial, order = *next.order](const std::exception_ptr &failure) {
             post_([this, serial, order, failure] {
                 failure ? absorb(serial, desired::TimedOut{order.number}) : send(serial, order);
             });
         });
}

void Converger::send(const std::string &serial, const desired::Order &order) {
    const auto hear = [this, serial, number = order.number](const fleet::Outcome &outcome) {
        if (outcome.end == fleet::Outcome::End::answered) {
            const Json answer = parse(outcome.answer);
            absorb(serial, desired::Answered{number, answer.is_discarded() ? Json() : answer});
        } else if (outcome.end == fleet::Outcome::End::refused) {
            absorb(serial, desired::Answered{number, nullptr});
        } else {
            absorb(serial, desired::TimedOut{number});
        }
    };
    const bool is_empty = order.request.is_null() || order.request.empty();
    fleet_.ask(serial, {.target = std::string(order.family) + "/" + std::to_string(order.slot),
                        .request = is_empty ? "" : order.request.dump(),
                        .patience_s = static_cast<double>(order.seconds),
                        .hear = hear});
}

}  // namespace converge

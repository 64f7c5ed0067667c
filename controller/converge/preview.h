/**
 * What a change of a configuration changes.
 */
#ifndef CONTROLLER_CONVERGE_PREVIEW_H
#define CONTROLLER_CONVERGE_PREVIEW_H

#include <map>
#include <string>

#include "controller/desired/documents.h"

namespace converge {

using desired::Json;

/** A canonical configuration by paths, SSIDs by their names: "/ssids/Guests/vlan". */
inline std::map<std::string, Json> fields_of(const Json &configuration) {
    std::map<std::string, Json> fields;
    const auto add = [&](const std::string &path, const Json &object) {
        for (const auto &[name, value] : object.items()) {
            fields[path + "/" + name] = value;
        }
    };
    for (const Json &ssid : configuration.is_object() ? configuration["ssids"] : Json::array()) {
        add("/ssids/" + ssid["name"].get<std::string>(), ssid);
    }
    if (configuration.is_object()) {
        for (const auto &[band, radio] : configuration["radios"].items()) {
            add("/radios/" + band, radio);
        }
        fields["/reboot"] = configuration.value("reboot", Json());
    }
    return fields;
}

/** [{"path", "before", "after"}]; of pass phrases only that they change. */
inline Json changes(const Json &before, const Json &after) {
    const auto old_fields = fields_of(before);
    auto fields = fields_of(after);
    for (const auto &[path, value] : old_fields) {
        fields.try_emplace(path, nullptr);
    }
    Json changes = Json::array();
    for (const auto &[path, value] : fields) {
        const auto old = old_fields.find(path);
        const Json was = old == old_fields.end() ? Json() : old->second;
        if (was != value) {
            const bool secret = path.ends_with("/passphrase");
            changes.push_back(
                {{"path", path},
                 {"before", secret ? Json(was.is_null() ? "none" : "set") : was},
                 {"after", secret ? Json(value.is_null() ? "none" : "other") : value}});
        }
    }
    return changes;
}

}  // namespace converge

#endif

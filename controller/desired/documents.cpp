#include "controller/desired/documents.h"

#include <algorithm>
#include <array>
#include <set>
#include <span>

#include "controller/desired/fields.h"

namespace desired {
namespace {

using Texts = std::vector<std::string>;

constexpr size_t most_problems = 16;
constexpr size_t most_ssids = bands[0].slots + bands[1].slots;

std::string below(const std::string &pointer, std::string name) {
    for (size_t at = 0; (at = name.find_first_of("~/", at)) != std::string::npos; at += 2) {
        name.replace(at, 1, name[at] == '~' ? "~0" : "~1");
    }
    return pointer + "/" + name;
}

/** Reads one document. */
class Reader {
  public:
    /** A part has what people put into it and nothing else. */
    enum class Form { whole, part };

    explicit Reader(Form form) : form_(form) {}

    void fault(const std::string &pointer, const std::string &detail) {
        if (problems.size() < most_problems) {
            problems.push_back({pointer, detail});
        }
    }

    bool is_object(const Json &in, const std::string &pointer) {
        if (!in.is_object()) {
            fault(pointer, "must be an object");
        }
        return in.is_object();
    }

    /** Members by their fields; `others` are taken by somebody else. */
    Json members(const Json &in, std::span<const Field> fields, const std::string &pointer,
                 const Texts &others = {}) {
        Json out = Json::object();
        refuse_unknown(in, fields, pointer, others);
        for (const Field &field : fields) {
            const auto given = in.find(field.name);
            if (given != in.end()) {
                const std::string detail = field.check(*given, out[field.name]);
                if (!detail.empty()) {
                    fault(below(pointer, field.name), detail);
                }
            } else if (form_ == Form::whole && field.otherwise != nullptr) {
                out[field.name] = Json::parse(field.otherwise);
            } else if (form_ == Form::whole) {
                fault(below(pointer, field.name), "is missing");
            }
        }
        return out;
    }

    /** Whether a member is to be read: it is there, or must be. */
    bool takes(const Json &in, const char *name, const std::string &pointer) {
        if (in.contains(name)) {
            return true;
        }
        if (form_ == Form::whole) {
            fault(below(pointer, name), "is missing");
        }
        return false;
    }

    void refuse_unknown(const Json &in, std::span<const Field> fields, const std::string &pointer,
                        const Texts &others) {
        for (const auto &[name, value] : in.items()) {
            if (std::ranges::find(fields, name, &Field::name) == fields.end() &&
                std::ranges::find(others, name) == others.end()) {
                fault(below(pointer, name), "is not known here");
            }
        }
    }

    Form form() const { return form_; }

    std::vector<Problem> problems;

  private:
    Form form_;
};

/* ---- the parts of a configuration -------------------------------------- */

const Json *find_ssid(const Json &document, const Json &name) {
    const auto ssids = document.is_object() ? document.find("ssids") : document.end();
    if (ssids == document.end()) {
        return nullptr;
    }
    const auto same =
        std::ranges::find_if(*ssids, [&](const Json &ssid) { return ssid.at("name") == name; });
    return same == ssids->end() ? nullptr : &*same;
}

/** Keeps the pass phrase of before where there is none, and none where none belongs. */
void settle_passphrase(Json &ssid, const Json &given, const Json *before,
                       const std::string &pointer, Reader &reader) {
    const bool is_new = ssid.contains("passphrase") && !ssid["passphrase"].is_null();
    const Json kept = before == nullptr ? Json() : before->value("passphrase", Json());
    if (reader.form() == Reader::Form::part) {
        if (!is_new) {
            ssid.erase("passphrase");
            if (kept.is_string() && given.value("passphrase_set", Json()) != Json(false)) {
                ssid["passphrase"] = kept;
            }
        }
        return;
    }
    const Json security = ssid.value("security", Json());
    if (security == "open") {
        if (is_new) {
            reader.fault(pointer, "must be left out: the network is open");
        }
    } else if (!is_new) {
        ssid["passphrase"] = kept;
        if (!kept.is_string() && !security.is_null()) {
            reader.fault(pointer, "is missing: the network is not open");
        }
    }
}

Json read_ssid(const Json &in, const Json &before, const std::string &pointer, Reader &reader) {
    if (!reader.is_object(in, pointer)) {
        return Json::object();
    }
    Json ssid = reader.members(in, ssid_fields, pointer, {"passphrase_set"});
    if (reader.form() == Reader::Form::part && !ssid.contains("name")) {
        reader.fault(below(pointer, "name"), "is missing");
    } else if (ssid.contains("name")) {
        settle_passphrase(ssid, in, find_ssid(before, ssid["name"]), below(pointer, "passphrase"),
                          reader);
    }
    return ssid;
}

/** What a list of SSIDs must keep as a whole: names are unique, and bands have room. */
void check_together(const Json &ssids, const std::string &pointer, Reader &reader) {
    std::set<Json> names;
    std::array<size_t, std::size(bands)> used{};
    for (size_t i = 0; i < ssids.size(); ++i) {
        const std::string place = below(pointer, std::to_string(i));
        if (ssids[i].contains("name") && !names.insert(ssids[i]["name"]).second) {
            reader.fault(below(place, "name"), "stands here already");
        }
        const Json listed = ssids[i].value("bands", Json::array());
        for (size_t band = 0; band < used.size(); ++band) {
            const bool is_on = std::ranges::find(listed, Json(bands[band].name)) != listed.end();
            if (is_on && ++used[band] == bands[band].slots + 1) {
                reader.fault(below(place, "bands"), std::string("is too much: a device has ") +
                                                        std::to_string(bands[band].slots) +
                                                        " SSIDs on " + bands[band].name + " GHz");
            }
        }
    }
}

Json read_ssids(const Json &in, const Json &before, Reader &reader) {
    const std::string pointer = "/ssids";
    Json ssids = Json::array();
    if (!in.is_array() || in.size() > most_ssids) {
        reader.fault(pointer, "must be a list of at most " + std::to_string(most_ssids) + " SSIDs");
        return ssids;
    }
    for (size_t i = 0; i < in.size(); ++i) {
        ssids.push_back(read_ssid(in[i], before, below(pointer, std::to_string(i)), reader));
    }
    check_together(ssids, pointer, reader);
    return ssids;
}

Json read_radios(const Json &in, Reader &reader) {
    const std::string pointer = "/radios";
    Json radios = Json::object();
    if (!reader.is_object(in, pointer)) {
        return radios;
    }
    reader.refuse_unknown(in, {}, pointer, {bands[0].name, bands[1].name});
    for (size_t i = 0; i < std::size(bands); ++i) {
        const char *band = bands[i].name;
        if (reader.takes(in, band, pointer) && reader.is_object(in[band], below(pointer, band))) {
            radios[band] = reader.members(in[band], radio_fields[i], below(pointer, band));
        }
    }
    return radios;
}

/** The schedule is one thing: a part holds it whole, too. */
Json read_reboot(const Json &in, Reader &reader) {
    Reader whole(Reader::Form::whole);
    const std::string pointer = "/reboot";
    Json reboot;
    if (!in.is_null() && whole.is_object(in, pointer)) {
        const bool is_cyclic = in.contains("every_minutes");
        reboot = whole.members(in, is_cyclic ? cyclic_fields : weekly_fields, pointer);
    }
    for (const Problem &problem : whole.problems) {
        reader.fault(problem.pointer, problem.detail);
    }
    return reboot;
}

Checked read(const Json &in, const Json &before, Reader::Form form) {
    Reader reader(form);
    Json out = Json::object();
    if (reader.is_object(in, "")) {
        reader.refuse_unknown(in, {}, "", {"ssids", "radios", "reboot"});
        if (reader.takes(in, "ssids", "")) {
            out["ssids"] = read_ssids(in["ssids"], before, reader);
        }
        if (reader.takes(in, "radios", "")) {
            out["radios"] = read_radios(in["radios"], reader);
        }
        if (in.contains("reboot") || form == Reader::Form::whole) {
            out["reboot"] = read_reboot(in.value("reboot", Json()), reader);
        }
    }
    return {std::move(out), std::move(reader.problems)};
}

}  // namespace

Checked check_site(const Json &input) {
    Reader reader(Reader::Form::whole);
    Json out = Json::object();
    if (reader.is_object(input, "")) {
        out = reader.members(input, site_fields, "", {"policies"});
        const Json policies = input.value("policies", Json::object());
        if (reader.is_object(policies, "/policies")) {
            out["policies"] = reader.members(policies, policy_fields, "/policies");
        }
    }
    return {std::move(out), std::move(reader.problems)};
}

Checked check_configuration(const Json &input, const Json &before) {
    return read(input, before, Reader::Form::whole);
}

Checked check_overrides(const Json &input, const Json &before) {
    return read(input, before, Reader::Form::part);
}

Checked merge(const Json &configuration, const Json &overrides) {
    Json merged = configuration;
    if (!overrides.is_object()) {
        return {merged, {}};
    }
    for (const Json &part : overrides.value("ssids", Json::array())) {
        const auto same = std::ranges::find_if(
            merged["ssids"], [&](const Json &ssid) { return ssid["name"] == part["name"]; });
        Json &ssid =
            same == merged["ssids"].end() ? merged["ssids"].emplace_back(Json::object()) : *same;
        ssid.update(part);
        if (ssid.value("security", "") == "open") {
            ssid["passphrase"] = nullptr;
        }
    }
    const Json radios = overrides.value("radios", Json::object());
    for (const auto &[band, part] : radios.items()) {
        merged["radios"][band].update(part);
    }
    if (overrides.contains("reboot")) {
        merged["reboot"] = overrides["reboot"];
    }
    return check_configuration(merged);
}

Json without_passphrases(Json document) {
    if (document.is_object() && document.contains("ssids")) {
        for (Json &ssid : document["ssids"]) {
            ssid["passphrase_set"] = ssid.value("passphrase", Json()).is_string();
            ssid["passphrase"] = nullptr;
        }
    }
    return document;
}

std::vector<const Json *> slots_of(const Json &configuration, const Band &band) {
    std::vector<const Json *> slots;
    for (const Json &ssid : configuration.at("ssids")) {
        const Json &listed = ssid.at("bands");
        if (std::ranges::find(listed, Json(band.name)) != listed.end()) {
            slots.push_back(&ssid);
        }
    }
    return slots;
}

}  // namespace desired

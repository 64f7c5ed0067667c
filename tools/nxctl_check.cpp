#include "tools/nxctl_check.h"

#include <strings.h>
#include <algorithm>
#include <cstdint>
#include <regex>
#include <vector>

namespace nxctl {
namespace {

constexpr size_t longest_text = 1023; /**< that the device's store takes, bytes */

using Faults = std::vector<std::string>;

struct Type {
    const char *name; /**< in a schema */
    const char *noun;
    bool (*is)(const Json &);
};

constexpr Type types[] = {
    {"integer", "whole number", [](const Json &value) { return value.is_number_integer(); }},
    {"string", "text", [](const Json &value) { return value.is_string(); }},
    {"object", "object", [](const Json &value) { return value.is_object(); }},
    {"array", "array", [](const Json &value) { return value.is_array(); }},
};

/** The members of an object that a device takes for `name`: it does not tell upper and
 *  lower case apart. */
const Json *find_member(const Json &object, const std::string &name) {
    for (const auto &[key, value] : object.items()) {
        if (strcasecmp(key.c_str(), name.c_str()) == 0) {
            return &value;
        }
    }
    return nullptr;
}

std::string join(const std::string &path, const std::string &name) {
    return path.empty() ? name : path + "." + name;
}

std::string whole_request(const std::string &path) {
    return path.empty() ? "the request" : path;
}

void check(const Json &schema, const Json &value, const std::string &path, Faults &faults);

void check_object(const Json &schema, const Json &value, const std::string &path, Faults &faults) {
    const Json *known = member(schema, "properties");
    for (const auto &[key, inner] : value.items()) {
        const Json *row = known == nullptr ? nullptr : find_member(*known, key);
        if (row == nullptr) {
            faults.push_back("there is no member " + join(path, key));
        } else {
            check(resolved(*row), inner, join(path, key), faults);
        }
    }
    for (const Json &name : schema.value("required", Json::array())) {
        if (find_member(value, name) == nullptr) {
            faults.push_back(join(path, name) + " is missing");
        }
    }
}

void check_number(const Json &schema, const Json &value, const std::string &path, Faults &faults) {
    const int64_t least = whole_number(schema, "minimum").value_or(INT32_MIN);
    const int64_t most = whole_number(schema, "maximum").value_or(INT32_MAX);
    const bool too_large =
        value.is_number_unsigned() && value.get<uint64_t>() > static_cast<uint64_t>(most);
    if (too_large || value.get<int64_t>() < least) {
        faults.push_back(path + " is not between " + std::to_string(least) + " and " +
                         std::to_string(most));
    }
    const Json *choices = member(schema, "oneOf");
    if (choices != nullptr && std::ranges::none_of(*choices, [&](const Json &choice) {
            return choice.at("const") == value;
        })) {
        std::string list;
        for (const Json &choice : *choices) {
            list += (list.empty() ? "" : ", ") + choice.at("const").dump() + " " +
                    text(choice, "title").value_or("");
        }
        faults.push_back(path + " is none of " + list);
    }
}

void check_text(const Json &schema, const std::string &value, const std::string &path,
                Faults &faults) {
    if (value.size() > longest_text) {
        faults.push_back(path + " has more than " + std::to_string(longest_text) + " bytes");
        return;
    }
    const auto pattern = text(schema, "pattern");
    if (pattern && !std::regex_search(value, std::regex(*pattern))) {
        faults.push_back(path + " has another form: " + text(schema, "description").value_or(""));
    }
}

void check(const Json &schema, const Json &value, const std::string &path, Faults &faults) {
    const std::string wanted = schema.at("type");
    const Type *type =
        std::ranges::find_if(types, [&](const Type &row) { return wanted == row.name; });
    if (!type->is(value)) {
        faults.push_back(whole_request(path) + " is no " + type->noun);
    } else if (value.is_object()) {
        check_object(schema, value, path, faults);
    } else if (value.is_array() && schema.contains("items")) {
        const Json items = resolved(schema.at("items"));
        for (size_t i = 0; i < value.size(); ++i) {
            check(items, value[i], path + "[" + std::to_string(i) + "]", faults);
        }
    } else if (value.is_number()) {
        check_number(schema, value, path, faults);
    } else if (value.is_string()) {
        check_text(schema, value, path, faults);
    }
}

}  // namespace

std::string faults_of(const Command &command, const std::string &request) {
    const Json schema =
        command.request.is_null() ? Json{{"type", "object"}} : resolved(command.request);
    if (schema.at("type") == "string") {
        return request.empty() ? "the request is missing" : "";
    }
    const auto value = parse_json(request.empty() ? "{}" : request);
    if (!value) {
        return "the request is no JSON";
    }
    Faults faults;
    check(schema, *value, "", faults);
    constexpr size_t enough = 8;
    std::string all;
    for (size_t i = 0; i < std::min(faults.size(), enough); ++i) {
        all += (all.empty() ? "" : "; ") + faults[i];
    }
    return faults.size() > enough ? all + "; and more" : all;
}

}  // namespace nxctl

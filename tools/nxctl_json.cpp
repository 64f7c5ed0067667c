#include "tools/nxctl_json.h"

namespace nxctl {

std::optional<Json> parse_json(std::string_view text) {
    constexpr int deepest = 64;
    bool too_deep = false;
    Json value = Json::parse(
        text,
        [&](int depth, Json::parse_event_t, Json &) {
            too_deep = too_deep || depth > deepest;
            return !too_deep;
        },
        false);
    if (value.is_discarded() || too_deep) {
        return std::nullopt;
    }
    return value;
}

const Json *member(const Json &object, const std::string &name) {
    if (!object.is_object()) {
        return nullptr;
    }
    const auto found = object.find(name);
    return found == object.end() ? nullptr : &*found;
}

std::optional<int64_t> whole_number(const Json &object, const std::string &name) {
    const Json *value = member(object, name);
    return value != nullptr && value->is_number_integer() ? std::optional(value->get<int64_t>())
                                                          : std::nullopt;
}

std::optional<double> number(const Json &object, const std::string &name) {
    const Json *value = member(object, name);
    return value != nullptr && value->is_number() ? std::optional(value->get<double>())
                                                  : std::nullopt;
}

std::optional<std::string> text(const Json &object, const std::string &name) {
    const Json *value = member(object, name);
    return value != nullptr && value->is_string() ? std::optional(value->get<std::string>())
                                                  : std::nullopt;
}

std::string json_line(const Json &value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

}  // namespace nxctl

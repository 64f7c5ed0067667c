#include "virtual/folder/json.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace vap {
namespace {

constexpr int deepest = 100;

/** Longest text of a complaint: the parser quotes what it read last. */
constexpr size_t longest_complaint = 300;

}  // namespace

Json parse_json(std::string_view text) {
    const auto not_too_deep = [](int depth, Json::parse_event_t, const Json &) {
        if (depth >= deepest) {
            throw std::runtime_error("nested deeper than " + std::to_string(deepest) + " levels");
        }
        return true;
    };
    try {
        return Json::parse(text, not_too_deep);
    } catch (const Json::exception &error) {
        throw std::runtime_error(std::string(error.what()).substr(0, longest_complaint));
    }
}

bool all_finite(const Json &value) {
    if (value.is_structured()) {
        return std::ranges::all_of(value, all_finite);
    }
    return !value.is_number_float() || std::isfinite(value.get<double>());
}

std::optional<double> number_of(const Json &value, double least, double most) {
    const double number = value.is_number() ? value.get<double>() : NAN;
    return number >= least && number <= most ? std::optional(number) : std::nullopt;
}

std::optional<int> integer_of(const Json &value, int least, int most) {
    const std::optional<double> number = number_of(value, least, most);
    return number ? std::optional(static_cast<int>(*number)) : std::nullopt;
}

}  // namespace vap

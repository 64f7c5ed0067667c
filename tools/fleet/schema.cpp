#include "tools/fleet/schema.h"

#include <algorithm>
#include <regex>

#include "scenario_schema.h"

namespace fleet {
namespace {

struct Type {
    const char *name; /**< in a schema */
    const char *noun;
    bool (*is)(const Json &);
};

constexpr Type types[] = {
    {"integer", "a whole number", [](const Json &v) { return v.is_number_integer(); }},
    {"number", "a number", [](const Json &v) { return v.is_number(); }},
    {"string", "a text", [](const Json &v) { return v.is_string(); }},
    {"object", "an object", [](const Json &v) { return v.is_object(); }},
    {"array", "a list", [](const Json &v) { return v.is_array(); }},
};

/** Walks through document and schema side by side. */
class Walk {
  public:
    Walk(const LocatedJson &document, const Json &schema) : document_(document), root_(schema) {}

    void check(const Json &schema, const Json &value, const std::string &pointer) {
        if (schema.contains("$ref")) {
            const std::string name = schema.at("$ref");
            check(root_.at(Json::json_pointer(name.substr(1))), value, pointer);
            return;
        }
        if (schema.contains("oneOf")) {
            check_choice(schema.at("oneOf"), value, pointer);
            return;
        }
        if (!is_of_type(schema, value, pointer)) {
            return;
        }
        if (schema.contains("enum")) {
            check_words(schema.at("enum"), value, pointer);
        }
        if (value.is_object()) {
            check_object(schema, value, pointer);
        } else if (value.is_array()) {
            check_list(schema, value, pointer);
        } else if (value.is_number()) {
            check_number(schema, value, pointer);
        } else if (schema.contains("pattern") &&
                   !std::regex_match(value.get<std::string>(),
                                     std::regex(schema.at("pattern").get<std::string>()))) {
            fault(pointer, "is not " + schema.value("description", "of the right form"));
        }
    }

    std::vector<std::string> faults;

  private:
    void fault(const std::string &pointer, const std::string &sentence) {
        faults.push_back(document_.fault(pointer, sentence));
    }

    bool is_of_type(const Json &schema, const Json &value, const std::string &pointer) {
        const auto *type = std::ranges::find_if(
            types, [&](const Type &row) { return schema.value("type", "") == row.name; });
        if (type == std::end(types) || type->is(value)) {
            return true;
        }
        fault(pointer, std::string("is not ") + type->noun);
        return false;
    }

    void check_words(const Json &words, const Json &value, const std::string &pointer) {
        if (std::ranges::find(words, value) == words.end()) {
            std::string list;
            for (const Json &word : words) {
                list += (list.empty() ? "" : ", ") + word.dump();
            }
            fault(pointer, "is none of " + list);
        }
    }

    void check_object(const Json &schema, const Json &value, const std::string &pointer) {
        static const Json none = Json::object();
        const Json &known = schema.contains("properties") ? schema.at("properties") : none;
        const bool closed = schema.contains("additionalProperties") &&
                            schema.at("additionalProperties").is_boolean();
        for (const auto &[key, inner] : value.items()) {
            if (known.contains(key)) {
                check(known.at(key), inner, below(pointer, key));
            } else if (closed) {
                fault(below(pointer, key), "is not known here");
            } else if (schema.contains("additionalProperties")) {
                check(schema.at("additionalProperties"), inner, below(pointer, key));
            }
        }
        for (const Json &name : schema.value("required", Json::array())) {
            if (!value.contains(name.get<std::string>())) {
                fault(pointer, "lacks \"" + name.get<std::string>() + "\"");
            }
        }
        if (value.size() < schema.value("minProperties", size_t{0})) {
            fault(pointer, "is empty");
        }
    }

    void check_list(const Json &schema, const Json &value, const std::string &pointer) {
        const size_t least = schema.value("minItems", size_t{0});
        const size_t most = schema.value("maxItems", SIZE_MAX);
        if (value.size() < least || value.size() > most) {
            fault(pointer,
                  least == most ? "has not " + std::to_string(least) + " elements" : "is empty");
        }
        for (size_t i = 0; i < value.size() && schema.contains("items"); ++i) {
            check(schema.at("items"), value[i], below(pointer, i));
        }
    }

    void check_number(const Json &schema, const Json &value, const std::string &pointer) {
        for (const auto &[bound, word, sign] :
             {std::tuple("minimum", "at least ", 1), std::tuple("maximum", "at most ", -1)}) {
            if (schema.contains(bound) &&
                sign * (value.get<double>() - schema.at(bound).get<double>()) < 0) {
                fault(pointer, std::string("is not ") + word + schema.at(bound).dump());
            }
        }
    }

    /** The constant member in which the objects of a choice differ. */
    static std::string distinction(const Json &choices) {
        const Json first = choices.at(0).value("properties", Json::object());
        for (const auto &[key, row] : first.items()) {
            if (row.contains("const")) {
                return key;
            }
        }
        return "";
    }

    void check_choice(const Json &choices, const Json &value, const std::string &pointer) {
        const std::string key = distinction(choices);
        std::string list;
        for (const Json &choice : choices) {
            if (key.empty() ? Walk(document_, root_).accepts(choice, value)
                            : value.is_object() && value.contains(key) &&
                                  choice.at("properties").at(key).at("const") == value.at(key)) {
                check(choice, value, pointer);
                return;
            }
            const Json &shown = key.empty() ? choice.at("description")
                                            : choice.at("properties").at(key).at("const");
            list += (list.empty() ? "" : ", ") +
                    (key.empty() ? shown.get<std::string>() : shown.dump());
        }
        if (!key.empty() && value.is_object() && !value.contains(key)) {
            fault(pointer, "lacks \"" + key + "\", one of " + list);
        } else {
            fault(key.empty() ? pointer : below(pointer, key), "is none of " + list);
        }
    }

    bool accepts(const Json &schema, const Json &value) {
        check(schema, value, "");
        return faults.empty();
    }

    const LocatedJson &document_;
    const Json &root_;
};

}  // namespace

std::vector<std::string> schema_faults(const LocatedJson &document, const Json &schema) {
    Walk walk(document, schema);
    walk.check(schema, document.value(), "");
    return walk.faults;
}

const Json &scenario_schema() {
    static const Json schema = Json::parse(scenario_schema_json);
    return schema;
}

}  // namespace fleet

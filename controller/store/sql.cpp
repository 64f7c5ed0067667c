#include "controller/store/sql.h"

#include <soci/soci.h>

#include <algorithm>
#include <charconv>
#include <list>
#include <string_view>

namespace store {
namespace {

/** A statement and what is bound to it: SOCI keeps references until it has run. */
class Bound {
  public:
    Bound(soci::session &session, const std::string &text, const Json &values)
        : statement_(session) {
        for (const auto &[name, value] : values.items()) {
            bind(name, value);
        }
        statement_.alloc();
        statement_.prepare(text);
        statement_.define_and_bind();
    }

    soci::statement &statement() { return statement_; }

  private:
    void bind(const std::string &name, const Json &value) {
        soci::indicator &indicator = indicators_.emplace_back(soci::i_ok);
        if (value.is_number_float()) {
            use(doubles_.emplace_back(value.get<double>()), indicator, name);
        } else if (value.is_number() || value.is_boolean()) {
            const long long number =
                value.is_boolean() ? value.get<bool>() : value.get<long long>();
            use(numbers_.emplace_back(number), indicator, name);
        } else {
            indicator = value.is_null() ? soci::i_null : soci::i_ok;
            std::string &text =
                texts_.emplace_back(value.is_string() ? value.get<std::string>() : value.dump());
            std::ranges::replace(text, '\0', ' ');  // which PostgreSQL takes in no text
            use(text, indicator, name);
        }
    }

    template <typename Value>
    void use(Value &value, soci::indicator &indicator, const std::string &name) {
        statement_.exchange(soci::use(value, indicator, name));
    }

    soci::statement statement_;
    std::list<soci::indicator> indicators_;
    std::list<double> doubles_;
    std::list<long long> numbers_;
    std::list<std::string> texts_;
};

Json number_of(const std::string &text) {
    long long whole = 0;
    const char *end = text.data() + text.size();
    if (std::from_chars(text.data(), end, whole).ptr == end) {
        return whole;
    }
    double number = 0;
    std::from_chars(text.data(), end, number);
    return number;
}

Json value_of(const soci::row &row, size_t column, bool as_number) {
    if (row.get_indicator(column) == soci::i_null) {
        return nullptr;
    }
    switch (row.get_properties(column).get_data_type()) {
        case soci::dt_integer:
            return row.get<int>(column);
        case soci::dt_long_long:
            return row.get<long long>(column);
        case soci::dt_unsigned_long_long:
            return row.get<unsigned long long>(column);
        case soci::dt_double:
            return row.get<double>(column);
        default: {
            const auto text = row.get<std::string>(column);
            return as_number ? number_of(text) : Json(text);
        }
    }
}

}  // namespace

Json Sql::rows(const std::string &query, const Json &values,
               std::initializer_list<const char *> numbers) {
    Bound bound(session_, query, values);
    soci::row row;
    bound.statement().exchange_for_rowset(soci::into(row));
    bound.statement().execute(false);
    Json found = Json::array();
    while (bound.statement().fetch()) {
        Json &object = found.emplace_back(Json::object());
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string &name = row.get_properties(i).get_name();
            const bool as_number =
                std::ranges::any_of(numbers, [&](const char *number) { return name == number; });
            object[name] = value_of(row, i, as_number);
        }
    }
    return found;
}

Json Sql::row(const std::string &query, const Json &values,
              std::initializer_list<const char *> numbers) {
    Json found = rows(query, values, numbers);
    return found.empty() ? Json() : std::move(found.front());
}

long long Sql::run(const std::string &statement, const Json &values) {
    Bound bound(session_, statement, values);
    bound.statement().execute(true);
    return bound.statement().get_affected_rows();
}

}  // namespace store

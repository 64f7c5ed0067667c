/**
 * SQL on SQLite and on PostgreSQL from one text.
 */
#ifndef CONTROLLER_STORE_SQL_H
#define CONTROLLER_STORE_SQL_H

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>

namespace soci {
class session;
}

namespace store {

using Json = nlohmann::json;

/** One connection, used by the database's thread alone. Everything throws
 *  std::exception with the database's words. */
class Sql {
  public:
    Sql(soci::session &session, bool is_postgresql)
        : session_(session), is_postgresql_(is_postgresql) {}

    /** The rows of a query, each an object by column. `values` are bound to ":name".
     *  SQLite tells no type of a computed column: those named in `numbers` become numbers. */
    Json rows(const std::string &query, const Json &values = Json::object(),
              std::initializer_list<const char *> numbers = {});

    /** The first of them; null for none. */
    Json row(const std::string &query, const Json &values = Json::object(),
             std::initializer_list<const char *> numbers = {});

    /** Runs a statement; how many rows it changed. */
    long long run(const std::string &statement, const Json &values = Json::object());

    bool is_postgresql() const { return is_postgresql_; }

  private:
    soci::session &session_;
    bool is_postgresql_;
};

}  // namespace store

#endif

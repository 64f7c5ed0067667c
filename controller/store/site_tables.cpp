#include "controller/store/site_tables.h"

namespace store {

Json sites(Sql &sql) {
    return sql.rows(
        "SELECT s.id, s.document, s.version, c.sealed, c.version AS configuration_version FROM "
        "sites s LEFT JOIN configurations c ON c.site = s.id AND c.version = (SELECT MAX(version) "
        "FROM configurations WHERE site = s.id) ORDER BY s.id");
}

long long make_site(Sql &sql, const std::string &name, const std::string &document) {
    const Json row = sql.row(
        "INSERT INTO sites (name, document, version) VALUES (:name, :document, 0) ON CONFLICT DO "
        "NOTHING RETURNING id",
        {{"name", name}, {"document", document}});
    return row.is_null() ? 0 : row["id"].get<long long>();
}

bool change_site(Sql &sql, long long id, const std::string &name, const std::string &document,
                 long long version) {
    return sql.run(
               "UPDATE sites SET name = :name, document = :document, version = :version WHERE id = "
               ":id AND version = :before AND NOT EXISTS (SELECT 1 FROM sites WHERE name = :name "
               "AND id <> :id)",
               {{"name", name},
                {"document", document},
                {"version", version},
                {"id", id},
                {"before", version - 1}}) > 0;
}

void forget_site(Sql &sql, long long id) {
    sql.run("DELETE FROM sites WHERE id = :id", {{"id", id}});
}

bool save_configuration(Sql &sql, const Version &version, const std::string &sealed) {
    return sql.run(
               "INSERT INTO configurations (site, version, sealed, made_at, made_by) VALUES "
               "(:site, "
               ":version, :sealed, :made_at, :made_by) ON CONFLICT DO NOTHING",
               {{"site", version.site},
                {"version", version.number},
                {"sealed", sealed},
                {"made_at", version.made_at},
                {"made_by", version.made_by}}) > 0;
}

Json configuration_versions(Sql &sql, long long site) {
    return sql.rows(
        "SELECT version, made_at, made_by FROM configurations WHERE site = :site ORDER BY version "
        "DESC",
        {{"site", site}});
}

Json configuration(Sql &sql, long long site, long long version) {
    return sql.row("SELECT sealed FROM configurations WHERE site = :site AND version = :version",
                   {{"site", site}, {"version", version}});
}

Json progress(Sql &sql) {
    return sql.rows("SELECT serial, overrides, knowledge FROM devices");
}

void save_knowledge(Sql &sql, const std::string &serial, const std::string &text) {
    sql.run("UPDATE devices SET knowledge = :text WHERE serial = :serial",
            {{"text", text}, {"serial", serial}});
}

void save_overrides(Sql &sql, const std::string &serial, const Json &sealed) {
    sql.run("UPDATE devices SET overrides = :sealed WHERE serial = :serial",
            {{"sealed", sealed}, {"serial", serial}});
}

}  // namespace store

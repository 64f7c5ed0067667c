#include "controller/store/people_tables.h"

namespace store {

void save_user(Sql &sql, const std::string &name, const std::string &role,
               const std::string &hash) {
    sql.run(
        "INSERT INTO users (name, role, password) VALUES (:name, :role, :hash) ON CONFLICT (name) "
        "DO UPDATE SET password = excluded.password, role = CASE WHEN excluded.role = '' THEN "
        "users.role ELSE excluded.role END",
        {{"name", name}, {"role", role}, {"hash", hash}});
    sql.run("DELETE FROM credentials WHERE user_name = :name AND kind = 'session'",
            {{"name", name}});
}

void forget_user(Sql &sql, const std::string &name) {
    sql.run("DELETE FROM users WHERE name = :name", {{"name", name}});
}

Json users(Sql &sql) {
    return sql.rows("SELECT name, role FROM users ORDER BY name");
}

Json user(Sql &sql, const std::string &name) {
    return sql.row("SELECT name, role, password FROM users WHERE name = :name", {{"name", name}});
}

void save_credential(Sql &sql, const Json &credential) {
    sql.run(
        "INSERT INTO credentials (hash, id, kind, name, user_name, role, made_at, expires_at) "
        "VALUES (:hash, :id, :kind, :name, :user_name, :role, :made_at, :expires_at)",
        credential);
}

Json credential(Sql &sql, const std::string &hash, long long now) {
    return sql.row(
        "SELECT c.id, c.kind, c.user_name, c.role, u.role AS user_role FROM credentials c JOIN "
        "users u ON u.name = c.user_name WHERE c.hash = :hash AND (c.expires_at IS NULL OR "
        "c.expires_at > :now)",
        {{"hash", hash}, {"now", now}});
}

Json tokens(Sql &sql) {
    return sql.rows(
        "SELECT id, name, user_name, role, made_at, expires_at FROM credentials WHERE kind = "
        "'token' ORDER BY made_at, id");
}

bool forget_credential(Sql &sql, const std::string &column, const std::string &value) {
    return sql.run("DELETE FROM credentials WHERE " + column + " = :value", {{"value", value}}) > 0;
}

void save_audit(Sql &sql, const Json &entry) {
    sql.run(
        "INSERT INTO audit (at, user_name, action, target, detail, status) VALUES (:at, "
        ":user_name, :action, :target, :detail, :status)",
        entry);
}

Json audit(Sql &sql, const Page &page) {
    return sql.rows(
        "SELECT * FROM audit WHERE (:below = 0 OR id < :below) ORDER BY id DESC LIMIT :most",
        {{"below", page.below}, {"most", page.limit}});
}

long long save_command(Sql &sql, const Json &command) {
    const Json row = sql.row(
        "INSERT INTO commands (serial, command, request, sealed, ordered_by, ordered_at, state, "
        "idempotency_key) VALUES (:serial, :command, :request, :sealed, :ordered_by, :ordered_at, "
        ":state, :idempotency_key) ON CONFLICT DO NOTHING RETURNING id",
        command);
    return row.is_null() ? 0 : row["id"].get<long long>();
}

Json command_of_key(Sql &sql, const std::string &user, const std::string &key) {
    return sql.row("SELECT * FROM commands WHERE ordered_by = :name AND idempotency_key = :key",
                   {{"name", user}, {"key", key}});
}

Json command(Sql &sql, long long id) {
    return sql.row("SELECT * FROM commands WHERE id = :id", {{"id", id}});
}

bool move_command(Sql &sql, long long id, const std::string &before, const std::string &state) {
    return sql.run(
               "UPDATE commands SET sealed = CASE WHEN :state = 'cancelled' THEN NULL ELSE sealed "
               "END, state = :state WHERE id = :id AND state = :before",
               {{"state", state}, {"id", id}, {"before", before}}) > 0;
}

void finish_command(Sql &sql, long long id, const Json &end) {
    Json values = end;
    values["id"] = id;
    sql.run(
        "UPDATE commands SET sealed = NULL, state = :state, resp_code = :resp_code, answer = "
        ":answer, duration_ms = :duration_ms WHERE id = :id",
        values);
}

Json queued_commands(Sql &sql) {
    return sql.rows(
        "SELECT id, serial, command, sealed FROM commands WHERE state = 'queued' "
        "ORDER BY id");
}

void orphan_commands(Sql &sql) {
    sql.run("UPDATE commands SET state = 'unknown', sealed = NULL WHERE state = 'sent'");
}

Json commands(Sql &sql, const std::string &serial, const Page &page) {
    return sql.rows(
        "SELECT id, command, request, ordered_by, ordered_at, state, resp_code, answer, "
        "duration_ms FROM commands WHERE serial = :serial AND (:below = 0 OR id < :below) ORDER "
        "BY id DESC LIMIT :most",
        {{"serial", serial}, {"below", page.below}, {"most", page.limit}});
}

}  // namespace store

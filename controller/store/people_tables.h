/**
 * Users, what they sign in with, what they did and ordered. Times are seconds since 1970.
 */
#ifndef CONTROLLER_STORE_PEOPLE_TABLES_H
#define CONTROLLER_STORE_PEOPLE_TABLES_H

#include <string>

#include "controller/store/fleet_tables.h"

namespace store {

/** Makes a user with the hash of a password, or changes one; the role stays when it is
 *  empty. All sessions of the user end. */
void save_user(Sql &sql, const std::string &name, const std::string &role, const std::string &hash);
void forget_user(Sql &sql, const std::string &name);

/** [{"name", "role"}], by name. */
Json users(Sql &sql);

/** {"name", "role", "password"}; null for none. */
Json user(Sql &sql, const std::string &name);

/** A session of the page, or a token for scripts: {"hash", "id", "kind": "session" |
 *  "token", "name", "user_name", "role", "made_at", "expires_at"}. */
void save_credential(Sql &sql, const Json &credential);

/** The one with this hash that is valid now, with the lower role of it and its user as
 *  "role"; null for none. */
Json credential(Sql &sql, const std::string &hash, long long now);

/** Tokens without their hashes. */
Json tokens(Sql &sql);

/** Ends a session or token by a column, "hash" or "id"; false for none. */
bool forget_credential(Sql &sql, const std::string &column, const std::string &value);

/** {"at", "user_name", "action", "target", "detail", "status"}. */
void save_audit(Sql &sql, const Json &entry);
Json audit(Sql &sql, const Page &page);

/** A command of a person: {"serial", "command", "request", "sealed", "ordered_by",
 *  "ordered_at", "state", "idempotency_key"}; `sealed` is what is sent, `request` what may
 *  be shown. The id of the new row, or 0 when that key was used before. */
long long save_command(Sql &sql, const Json &command);

/** The command of a user's key, whole; null for none. */
Json command_of_key(Sql &sql, const std::string &user, const std::string &key);
Json command(Sql &sql, long long id);

/** A new state; what is to be sent is forgotten with "cancelled". Only from the state
 *  `before`; false when it is in another. */
bool move_command(Sql &sql, long long id, const std::string &before, const std::string &state);

/** How it ended: {"state", "resp_code", "answer", "duration_ms"}. */
void finish_command(Sql &sql, long long id, const Json &end);

/** Those that wait for their devices, oldest first. */
Json queued_commands(Sql &sql);

/** Those that were sent by a process that is gone get the state "unknown". */
void orphan_commands(Sql &sql);

Json commands(Sql &sql, const std::string &serial, const Page &page);

}  // namespace store

#endif

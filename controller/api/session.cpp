// Who may: users, sessions of the page, tokens of scripts; and what they did.

#include <algorithm>

#include "controller/api/routes.h"
#include "controller/store/people_tables.h"

namespace api {
namespace {

using Type = Json::value_t;
constexpr long long session_s = 12 * 3600;
constexpr size_t shortest_password = 8;

/** A hash that no password has: an unknown user takes as long as a known one. */
const std::string &nobodys_hash() {
    static const std::string hash = store::hash_password(store::random_text(16));
    return hash;
}

std::string cookie(const Context &context, const std::string &secret, long long age) {
    return "norvex_session=" + secret +
           "; Path=/; HttpOnly; SameSite=Strict; Max-Age=" + std::to_string(age) +
           (context.request.tls ? "; Secure" : "");
}

void expect_patience(Context &context, const std::string &user) {
    const double now = fleet::steady_now();
    const double wait = std::max(context.service.patience.wait("user " + user, now),
                                 context.service.patience.wait(context.request.peer, now));
    if (wait > 0) {
        throw Problem{429,
                      "too many attempts",
                      "",
                      Json::object(),
                      {{"retry-after", std::to_string(static_cast<int>(wait) + 1)}}};
    }
}

Role role_in(const Context &context) {
    const Role role = role_of(context.body["role"]);
    if (role == Role::anyone) {
        throw Problem{400, "role must be viewer, operator or admin", "/role"};
    }
    return role;
}

/** Names of people and tokens stand in paths and headers. */
void expect_name(const std::string &name, const char *field) {
    const bool good = !name.empty() && std::ranges::all_of(name, [](char letter) {
        return std::isalnum(static_cast<unsigned char>(letter)) || letter == '-' || letter == '_' ||
               letter == '.' || letter == '@';
    });
    if (!good) {
        throw Problem{400, "a name takes letters, digits and -_.@", field};
    }
}

}  // namespace

awaitable<http::Response> sign_in(Context &context) {
    context.expect({{"user", Type::string, true, 64}, {"password", Type::string, true, 256}});
    const std::string name = context.body["user"];
    const std::string password = context.body["password"];
    context.user = name;
    expect_patience(context, name);
    const Json user =
        co_await query(context.service, [&](store::Sql &sql) { return store::user(sql, name); });
    const std::string known = user.is_null() ? "" : user["password"].get<std::string>();
    const Json right = co_await aside(context.service, [&] {
        return Json(store::is_password(known.empty() ? nobodys_hash() : known, password) &&
                    !known.empty());
    });
    if (!right.get<bool>()) {
        context.service.patience.failed("user " + name, fleet::steady_now());
        context.service.patience.failed(context.request.peer, fleet::steady_now());
        throw Problem{403, "the user or the password is wrong"};
    }
    context.service.patience.succeeded("user " + name);
    context.service.patience.succeeded(context.request.peer);
    const std::string secret = store::random_text(32);
    const Json credential = {{"hash", store::hash_secret(secret)},
                             {"id", store::random_text(8)},
                             {"kind", "session"},
                             {"name", ""},
                             {"user_name", name},
                             {"role", user["role"]},
                             {"made_at", fleet::wall_now()},
                             {"expires_at", fleet::wall_now() + session_s}};
    co_await query(context.service, [&](store::Sql &sql) {
        store::save_credential(sql, credential);
        return Json();
    });
    http::Response response = json({{"user", name}, {"role", user["role"]}});
    response.headers.emplace_back("set-cookie", cookie(context, secret, session_s));
    co_return response;
}

awaitable<http::Response> sign_out(Context &context) {
    co_await query(context.service, [&](store::Sql &sql) {
        return Json(store::forget_credential(sql, "hash", context.credential));
    });
    http::Response response;
    response.status = 204;
    response.headers = {{"set-cookie", cookie(context, "", 0)}};
    co_return response;
}

awaitable<http::Response> who_am_i(Context &context) {
    co_return json({{"user", context.user}, {"role", name_of(context.role)}});
}

awaitable<http::Response> list_users(Context &context) {
    const Json rows = co_await query(context.service, store::users);
    co_return json({{"items", rows}});
}

awaitable<http::Response> put_user(Context &context) {
    context.expect({{"name", Type::string, true, 64},
                    {"role", Type::string, true, 16},
                    {"password", Type::string, true, 256}});
    const std::string name = context.body["name"];
    const std::string password = context.body["password"];
    expect_name(name, "/name");
    if (password.size() < shortest_password) {
        throw Problem{400, "a password takes at least 8 characters", "/password"};
    }
    const std::string role = name_of(role_in(context));
    context.audit_detail = name + " " + role;
    if (name == context.user && role_of(role) != Role::admin) {
        throw Problem{409, "you cannot take your own rights away", "/role"};
    }
    const Json hash =
        co_await aside(context.service, [&] { return Json(store::hash_password(password)); });
    co_await query(context.service, [&](store::Sql &sql) {
        store::save_user(sql, name, role, hash);
        return Json();
    });
    co_return json({{"name", name}, {"role", role}}, 201);
}

awaitable<http::Response> delete_user(Context &context) {
    const std::string name = context.param("name");
    if (name == context.user) {
        throw Problem{409, "you cannot remove yourself"};
    }
    const Json known = co_await query(context.service, [&](store::Sql &sql) {
        const Json user = store::user(sql, name);
        store::forget_user(sql, name);
        return user;
    });
    if (known.is_null()) {
        throw Problem{404, "there is no user of this name"};
    }
    http::Response response;
    response.status = 204;
    co_return response;
}

awaitable<http::Response> list_tokens(Context &context) {
    const Json rows = co_await query(context.service, store::tokens);
    co_return json({{"items", rows}});
}

awaitable<http::Response> make_token(Context &context) {
    context.expect({{"name", Type::string, true, 64},
                    {"role", Type::string, true, 16},
                    {"days", Type::number_integer}});
    const std::string name = context.body["name"];
    expect_name(name, "/name");
    const Role role = role_in(context);
    const Json days = context.body.value("days", Json());
    if (days.is_number() && (days < 1 || days > 3650)) {
        throw Problem{400, "days must be from 1 to 3650", "/days"};
    }
    if (context.service.open) {
        throw Problem{409, "an open service needs no tokens"};
    }
    const std::string secret = "nvx_" + store::random_text(32);
    const long long now = fleet::wall_now();
    Json credential = {
        {"id", store::random_text(8)},
        {"name", name},
        {"user_name", context.user},
        {"role", name_of(role)},
        {"made_at", now},
        {"expires_at", days.is_null() ? Json() : Json(now + days.get<int>() * 86400LL)}};
    Json row = credential;
    row["hash"] = store::hash_secret(secret);
    row["kind"] = "token";
    co_await query(context.service, [&](store::Sql &sql) {
        store::save_credential(sql, row);
        return Json();
    });
    context.audit_detail = name + " " + name_of(role);
    credential["token"] = secret;
    co_return json(credential, 201);
}

awaitable<http::Response> delete_token(Context &context) {
    const Json gone = co_await query(context.service, [&](store::Sql &sql) {
        return Json(store::forget_credential(sql, "id", context.param("id")));
    });
    if (!gone.get<bool>()) {
        throw Problem{404, "there is no token of this id"};
    }
    http::Response response;
    response.status = 204;
    co_return response;
}

awaitable<http::Response> list_audit(Context &context) {
    const store::Page page = context.page();
    const Json rows =
        co_await query(context.service, [&](store::Sql &sql) { return store::audit(sql, page); });
    co_return rows_page(rows, page);
}

}  // namespace api

// The way of a request: its route, who asks, the body, the handler, the audit.

#include <algorithm>
#include <cstdio>

#include "controller/api/routes.h"
#include "controller/http/page.h"
#include "controller/store/people_tables.h"

namespace api {
namespace {

constexpr const char *cookie_name = "norvex_session";
constexpr const char *content_policy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; font-src "
    "'self'; connect-src 'self'; worker-src 'self'; manifest-src 'self'; base-uri 'none'; "
    "form-action 'self'; frame-ancestors 'none'";

std::vector<std::string> parts_of(const std::string &path) {
    std::vector<std::string> parts;
    for (size_t at = 1; at <= path.size();) {
        const size_t end = std::min(path.find('/', at), path.size());
        parts.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

bool matches(const Route &route, const std::vector<std::string> &parts,
             std::map<std::string, std::string> &params) {
    const std::vector<std::string> pattern = parts_of(route.path);
    if (pattern.size() != parts.size()) {
        return false;
    }
    params.clear();
    for (size_t i = 0; i < parts.size(); ++i) {
        if (pattern[i].starts_with('{') && !parts[i].empty()) {
            params[pattern[i].substr(1, pattern[i].size() - 2)] = parts[i];
        } else if (pattern[i] != parts[i]) {
            return false;
        }
    }
    return true;
}

/** Throws 404 and 405; the latter names what the path takes. */
const Route &route_of(Context &context) {
    const std::vector<std::string> parts = parts_of(context.request.path);
    const std::string method = context.request.method == "HEAD" ? "GET" : context.request.method;
    std::string allowed;
    for (const Route &route : routes()) {
        if (matches(route, parts, context.params)) {
            if (method == route.method) {
                return route;
            }
            allowed += (allowed.empty() ? "" : ", ") + std::string(route.method);
        }
    }
    if (allowed.empty()) {
        throw Problem{404, "there is nothing at this path"};
    }
    throw Problem{405, "this path takes " + allowed, "", Json::object(), {{"allow", allowed}}};
}

bool is_loopback_name(std::string host) {
    host = host.substr(0, host.find(']') == host.npos ? host.rfind(':') : host.find(']') + 1);
    return host == "localhost" || host == "127.0.0.1" || host == "[::1]";
}

/** Another site's page may not act with the rights of a browser: neither with its cookie,
 *  nor on a service that is open to all of this machine. */
void expect_own_page(const Context &context) {
    const std::string site = context.request.header("sec-fetch-site");
    const bool acts = context.request.method != "GET" && context.request.method != "HEAD";
    if (acts && !site.empty() && site != "same-origin" && site != "none") {
        throw Problem{403, "this came from another site's page"};
    }
    if (context.service.open && !is_loopback_name(context.request.header("host"))) {
        throw Problem{403, "an open service answers to the names of this machine alone"};
    }
}

awaitable<void> find_user(Context &context) {
    if (context.service.open) {
        context.user = "open";
        context.role = Role::admin;
        co_return;
    }
    const std::string header = context.request.header("authorization");
    constexpr std::string_view bearer = "Bearer ";
    const std::string secret = header.starts_with(bearer) ? header.substr(bearer.size())
                                                          : context.request.cookie(cookie_name);
    if (secret.empty()) {
        co_return;
    }
    context.credential = store::hash_secret(secret);
    const Json found = co_await query(context.service, [&](store::Sql &sql) {
        return store::credential(sql, context.credential, fleet::wall_now());
    });
    if (!found.is_null()) {
        context.user = found["user_name"];
        context.role = std::min(role_of(found["role"]), role_of(found["user_role"]));
    }
}

void expect_role(const Context &context, const Route &route) {
    if (context.role >= route.role) {
        return;
    }
    if (context.role == Role::anyone) {
        throw Problem{
            401, "sign in, or send a token", "", Json::object(), {{"www-authenticate", "Bearer"}}};
    }
    throw Problem{403, std::string("this takes the role ") + name_of(route.role)};
}

void parse_body(Context &context) {
    if (context.request.body.empty()) {
        return;
    }
    if (!context.request.header("content-type").starts_with("application/json")) {
        throw Problem{415, "the body must be application/json"};
    }
    int deepest = 0;
    const auto shallow = [&](int depth, Json::parse_event_t, Json &) {
        deepest = std::max(deepest, depth);
        return depth <= 64;
    };
    context.body = Json::parse(context.request.body, shallow, false);
    if (context.body.is_discarded() || deepest > 64) {
        throw Problem{400, "the body is no JSON, or nested too deeply"};
    }
}

void audit(const Context &context, const Route &route, int status) {
    const Json entry = {{"at", fleet::wall_now()},
                        {"user_name", context.user},
                        {"action", std::string(route.method) + " " + route.path},
                        {"target", context.request.path},
                        {"detail", context.audit_detail},
                        {"status", status}};
    context.service.database.post([entry](store::Sql &sql) { store::save_audit(sql, entry); });
}

awaitable<http::Response> handle(Context &context, const Route *&route) {
    route = &route_of(context);
    expect_own_page(context);
    co_await find_user(context);
    expect_role(context, *route);
    parse_body(context);
    co_return co_await route->handler(context);
}

/** A failure of the service itself: the words go to its log, not to the client. */
Problem mishap(const Context &context, const std::exception &error) {
    fprintf(stderr, "%s %s: %s\n", context.request.method.c_str(), context.request.path.c_str(),
            error.what());
    return {500, "the service could not do this; its log says why"};
}

void add_headers(http::Response &response) {
    for (const auto &[name, value] :
         {std::pair("content-security-policy", content_policy),
          std::pair("x-content-type-options", "nosniff"),
          std::pair("referrer-policy", "no-referrer"), std::pair("x-frame-options", "DENY")}) {
        response.headers.emplace_back(name, value);
    }
    if (std::ranges::none_of(response.headers,
                             [](const auto &header) { return header.first == "cache-control"; })) {
        response.headers.emplace_back("cache-control", "no-store");
    }
}

}  // namespace

awaitable<http::Response> respond(Service &service, http::Request request) {
    Context context{.service = service, .request = std::move(request)};
    const Route *route = nullptr;
    http::Response response;
    try {
        response = co_await handle(context, route);
    } catch (const Problem &problem) {
        // What is no route is a file of the page, or one of its views.
        const auto file = route == nullptr ? http::page(context.request) : std::nullopt;
        response = file ? *file : response_of(problem);
    } catch (const std::exception &error) {
        response = response_of(mishap(context, error));
    }
    if (route != nullptr && std::string_view(route->method) != "GET" && response.status != 401) {
        audit(context, *route, response.status);
    }
    add_headers(response);
    co_return response;
}

}  // namespace api

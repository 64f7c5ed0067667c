/**
 * The table of everything that the API offers.
 */
#ifndef CONTROLLER_API_ROUTES_H
#define CONTROLLER_API_ROUTES_H

#include <span>
#include <string_view>

#include "controller/api/service.h"

namespace api {

using Handler = awaitable<http::Response> (*)(Context &);

struct Route {
    const char *method;
    const char *path; /**< "{name}" stands for a part of a request's path */
    Role role;        /**< who may, at least */
    Handler handler;
};

/** In the order of the reference. */
std::span<const Route> routes();

// The handlers, by file.
// session.cpp
awaitable<http::Response> sign_in(Context &);
awaitable<http::Response> sign_out(Context &);
awaitable<http::Response> who_am_i(Context &);
awaitable<http::Response> list_users(Context &);
awaitable<http::Response> put_user(Context &);
awaitable<http::Response> delete_user(Context &);
awaitable<http::Response> list_tokens(Context &);
awaitable<http::Response> make_token(Context &);
awaitable<http::Response> delete_token(Context &);
awaitable<http::Response> list_audit(Context &);
// summary.cpp
awaitable<http::Response> get_summary(Context &);
// devices.cpp
awaitable<http::Response> list_devices(Context &);
awaitable<http::Response> get_device(Context &);
awaitable<http::Response> patch_device(Context &);
awaitable<http::Response> delete_device(Context &);
// reports.cpp
awaitable<http::Response> get_status(Context &);
awaitable<http::Response> get_clients(Context &);
awaitable<http::Response> get_radios(Context &);
awaitable<http::Response> get_neighbors(Context &);
awaitable<http::Response> get_topology(Context &);
awaitable<http::Response> get_config(Context &);
awaitable<http::Response> get_logs(Context &);
awaitable<http::Response> get_device_alarms(Context &);
awaitable<http::Response> get_samples(Context &);
awaitable<http::Response> find_clients(Context &);
awaitable<http::Response> list_alarms(Context &);
awaitable<http::Response> acknowledge(Context &);
// commands.cpp
awaitable<http::Response> post_command(Context &);
awaitable<http::Response> list_commands(Context &);
awaitable<http::Response> get_command(Context &);
awaitable<http::Response> cancel_command(Context &);
// sites.cpp
awaitable<http::Response> list_sites(Context &);
awaitable<http::Response> make_site(Context &);
awaitable<http::Response> get_site(Context &);
awaitable<http::Response> put_site(Context &);
awaitable<http::Response> delete_site(Context &);
awaitable<http::Response> get_configuration(Context &);
awaitable<http::Response> put_configuration(Context &);
awaitable<http::Response> list_configurations(Context &);
awaitable<http::Response> roll_back(Context &);
awaitable<http::Response> preview_configuration(Context &);
awaitable<http::Response> get_overrides(Context &);
awaitable<http::Response> put_overrides(Context &);
// engines.cpp
awaitable<http::Response> events(Context &);
awaitable<http::Response> openapi(Context &);
awaitable<http::Response> healthz(Context &);
awaitable<http::Response> readyz(Context &);
awaitable<http::Response> metrics(Context &);

}  // namespace api

#endif

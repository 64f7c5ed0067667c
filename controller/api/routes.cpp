#include "controller/api/routes.h"

namespace api {
namespace {

using enum Role;

// clang-format off: a row a route
constexpr Route table[] = {
    {"POST", "/api/v1/session", anyone, sign_in},
    {"DELETE", "/api/v1/session", viewer, sign_out},
    {"GET", "/api/v1/me", viewer, who_am_i},
    {"GET", "/api/v1/summary", viewer, get_summary},
    {"GET", "/api/v1/devices", viewer, list_devices},
    {"GET", "/api/v1/devices/{serial}", viewer, get_device},
    {"PATCH", "/api/v1/devices/{serial}", operate, patch_device},
    {"DELETE", "/api/v1/devices/{serial}", operate, delete_device},
    {"GET", "/api/v1/devices/{serial}/status", viewer, get_status},
    {"GET", "/api/v1/devices/{serial}/clients", viewer, get_clients},
    {"GET", "/api/v1/devices/{serial}/radios", viewer, get_radios},
    {"GET", "/api/v1/devices/{serial}/neighbors", viewer, get_neighbors},
    {"GET", "/api/v1/devices/{serial}/topology", viewer, get_topology},
    {"GET", "/api/v1/devices/{serial}/config", viewer, get_config},
    {"GET", "/api/v1/devices/{serial}/logs", viewer, get_logs},
    {"GET", "/api/v1/devices/{serial}/alarms", viewer, get_device_alarms},
    {"GET", "/api/v1/devices/{serial}/samples", viewer, get_samples},
    {"GET", "/api/v1/devices/{serial}/overrides", viewer, get_overrides},
    {"PUT", "/api/v1/devices/{serial}/overrides", operate, put_overrides},
    {"GET", "/api/v1/devices/{serial}/commands", viewer, list_commands},
    {"POST", "/api/v1/devices/{serial}/commands", operate, post_command},
    {"GET", "/api/v1/devices/{serial}/commands/{id}", viewer, get_command},
    {"DELETE", "/api/v1/devices/{serial}/commands/{id}", operate, cancel_command},
    {"GET", "/api/v1/sites", viewer, list_sites},
    {"POST", "/api/v1/sites", operate, make_site},
    {"GET", "/api/v1/sites/{id}", viewer, get_site},
    {"PUT", "/api/v1/sites/{id}", operate, put_site},
    {"DELETE", "/api/v1/sites/{id}", operate, delete_site},
    {"GET", "/api/v1/sites/{id}/configuration", viewer, get_configuration},
    {"PUT", "/api/v1/sites/{id}/configuration", operate, put_configuration},
    {"GET", "/api/v1/sites/{id}/configuration/versions", viewer, list_configurations},
    {"POST", "/api/v1/sites/{id}/configuration/rollback", operate, roll_back},
    {"POST", "/api/v1/sites/{id}/configuration/preview", operate, preview_configuration},
    {"GET", "/api/v1/clients", viewer, find_clients},
    {"GET", "/api/v1/alarms", viewer, list_alarms},
    {"POST", "/api/v1/alarms/{id}/acknowledge", operate, acknowledge},
    {"GET", "/api/v1/audit", admin, list_audit},
    {"GET", "/api/v1/users", admin, list_users},
    {"POST", "/api/v1/users", admin, put_user},
    {"DELETE", "/api/v1/users/{name}", admin, delete_user},
    {"GET", "/api/v1/tokens", admin, list_tokens},
    {"POST", "/api/v1/tokens", admin, make_token},
    {"DELETE", "/api/v1/tokens/{id}", admin, delete_token},
    {"GET", "/api/v1/events", viewer, events},
    {"GET", "/api/v1/openapi.yaml", anyone, openapi},
    {"GET", "/healthz", anyone, healthz},
    {"GET", "/readyz", anyone, readyz},
    {"GET", "/metrics", viewer, metrics},
};

}  // namespace

std::span<const Route> routes() {
    return table;
}

}  // namespace api

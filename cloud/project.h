/**
 * Binding of the device to a project of the cloud, and how it is managed.
 */
#ifndef CLOUD_PROJECT_H
#define CLOUD_PROJECT_H

#include <cjson/cJSON.h>

/** Management modes of `get_sky_mode`. */
namespace sky_mode {
constexpr int off = 0;
constexpr int local = 2; /**< managed locally: pushes from the cloud are refused */
}  // namespace sky_mode

/** The management mode: 0 while cloud management is off, else "nx.manage.mode". */
int get_sky_mode();

/** Stores an offset from UTC in hours ("+8", "-3.5") in "sys.timezone" as offset
 *  plus 12, without commit. 0: stored; -1: unchanged, or no finite number. */
int set_timezone(const char *text);

/** Switches the LAN to DHCP, with a commit of its own, unless a DHCP client runs
 *  already. Always 0. */
int norvex_set_lan_dhcp();

/** Commands of the cloud family. */
int add_router_to_prj(cJSON *request, cJSON *response);
int del_router_from_prj(cJSON *request, cJSON *response);
int server_status(cJSON *request, cJSON *response);
int app_open_cloud(cJSON *request, cJSON *response);

#endif

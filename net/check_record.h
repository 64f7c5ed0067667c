/**
 * Results of the network diagnosis.
 */
#ifndef NET_CHECK_RECORD_H
#define NET_CHECK_RECORD_H

#include <cjson/cJSON.h>

/** Numbers of the checks, as the cloud knows them. */
namespace check_type {
constexpr int channel_usage = 1;
constexpr int station_count = 2;
constexpr int wifi_throughput = 3;
constexpr int gateway = 4;
constexpr int wired_throughput = 5;
constexpr int server_reachable = 12;
constexpr int server_reply_time = 13;
}  // namespace check_type

/** Verdicts of a check. */
namespace check_result {
constexpr int healthy = 0;
constexpr int problem = -1; /**< or the check could not run */
}  // namespace check_result

/** Appends {"check_type", "result"} to the result list. False: out of memory, and
 *  nothing is appended. */
bool check_record_append(cJSON *results, int type, int result);

#endif

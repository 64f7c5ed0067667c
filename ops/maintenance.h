/**
 * The schedule on which the device restarts itself. The device's own scheduler
 * reads the settings.
 */
#ifndef OPS_MAINTENANCE_H
#define OPS_MAINTENANCE_H

#include <cjson/cJSON.h>

/** Applies a maintenance object and, once it is committed, sends `notice`, which
 *  may be null, to the network control daemon. A mode that is not supported
 *  commits nothing. The caller's name stands in the trace line. Main thread. */
void maintenance_apply(const cJSON *maint, const char *notice,
                       const char *function = __builtin_FUNCTION());

/** Applies the "maint" object of a download. Always 0. Main thread. */
int config_maint_parse(const cJSON *maint);

/** Sets a restart on weekdays, at a time of day. 0; -1: "repeat_day" is missing,
 *  and nothing is set. */
int mainet_schedule_reboot_parse(const cJSON *schedule);

/** Sets a restart after each interval. Always 0. */
int mainet_cycle_reboot_parse(const cJSON *cycle);

#endif

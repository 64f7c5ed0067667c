#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "alarm/alarm.h"
#include "cloud_time.h"
#include "json.h"
#include "platform/nxapi.h"
#include "platform/systool.h"
#include "store.h"
#include "trace.h"
#include "upload.h"

namespace {

// Use in per cent from which a beat counts as busy, and below which a busy spell
// of the processor ends: 90 itself neither adds to a spell nor ends it.
constexpr int busy_use = 91;
constexpr int calm_use = 90;

// A processor alarm takes more busy beats than this.
constexpr int busy_beats = 8;

// Seconds that must lie between two alarms of one resource.
constexpr int64_t alarm_interval = 600;

// Kept for the life of the process; the beat thread is their only user.
int cpu_busy_count = 0;
int32_t last_cpu_alarm = 0;  // seconds since the epoch
int32_t last_rom_alarm = 0;

/** True when the last alarm is long enough ago, which makes `now` the last one.
 *  A clock that was set back counts as well. */
bool alarm_due(int32_t &last, int32_t now) {
    if (std::llabs(int64_t{now} - last) <= alarm_interval) {
        return false;
    }
    last = now;
    return true;
}

bool add_alarm(cJSON *alarms, const char *resource, int use, int report_time) {
    char event[64];
    snprintf(event, sizeof event, "%s uses of the device is %d%%", resource, use);
    Json alarm = json_object();
    return json_add_number(alarm.get(), "timestamp", report_time) != nullptr &&
           json_add_string(alarm.get(), "event", event) != nullptr &&
           json_append(alarms, std::move(alarm)) != nullptr;
}

/** Counts a beat of the processor and adds its alarm when one is due. False: out
 *  of memory. */
bool sample_cpu(const sys_status &status, int64_t now, int zone, cJSON *alarms) {
    if (status.cpu < busy_use) {
        cpu_busy_count = status.cpu < calm_use ? 0 : cpu_busy_count;
        return true;
    }
    ++cpu_busy_count;
    if (cpu_busy_count <= busy_beats || !alarm_due(last_cpu_alarm, static_cast<int32_t>(now))) {
        return true;
    }
    const int report_time = cloud_time(now, zone);
    if (!add_alarm(alarms, "CPU", status.cpu, report_time)) {
        return false;
    }
    NX_TRACE_AS("api_alarm_upload", "upload:cpuinfo: %d; usememinfo: %d, report_time:%d\n",
                status.cpu, status.rom, report_time);
    return true;
}

bool sample_rom(const sys_status &status, int64_t now, int zone, cJSON *alarms) {
    return status.rom < busy_use || !alarm_due(last_rom_alarm, static_cast<int32_t>(now)) ||
           add_alarm(alarms, "ROM", status.rom, cloud_time(now, zone));
}

}  // namespace

int api_alarm_upload() {
    sys_status status{};
    char targets[32];
    store_text("sys.targets", targets);
    systool_sys_status_get(targets, &status);
    const Json document = json_object();
    cJSON *alarms = json_add_array(document.get(), "alarm");
    if (alarms == nullptr) {
        NX_TRACE("Create cJSON is null!\n");
        return -1;
    }
    char zone_text[16];
    if (!store_text("sys.timezone", zone_text)) {
        NX_TRACE("ERROR get mib sys.timezone value!\n");
    }
    const int zone = text_int(zone_text);
    const int64_t now = time(nullptr);
    if (!sample_cpu(status, now, zone, alarms) || !sample_rom(status, now, zone, alarms)) {
        NX_TRACE("Create cJSON is null!\n");
        return -1;
    }
    if (cJSON_GetArraySize(alarms) == 0) {
        return 0;
    }
    return document_upload(document, nx_api_alarm_upload, "nx_api_alarm_upload");
}

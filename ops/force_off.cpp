#include <cstdio>

#include "cloud/project.h"
#include "heap.h"
#include "json.h"
#include "ops/nx_dev_api.h"
#include "ops/stations.h"
#include "platform/wifi.h"
#include "thread.h"
#include "trace.h"

namespace {

/** Throws a station out and enters it in the block; false: nobody knows it. */
bool kick_off(const char *mac, ReleaseBlock &block) {
    int32_t &count = block.front().count;
    ReleaseRecord &record = block[count];
    int ssid_index = 0;
    int radio = 0;
    if (find_ssidindex_radio(mac, &ssid_index, &radio) != 0) {
        NX_TRACE_AS("force_off", "Not find this station!\n");
        return false;
    }
    snprintf(record.text, sizeof record.text, "%s;1", mac);
    record.ssid_index = ssid_index;
    record.radio = radio;
    if (sta_kickoff(record.text, ssid_index, radio) == -1) {
        NX_TRACE_AS("force_off", " kick sta off err!\n");
    }
    ++count;
    return true;
}

}  // namespace

/** Throws stations out, in the order of the request, which is an array, up to the
 *  first that is not associated; all are let in again five seconds later. A station
 *  that could not be entered for that is not thrown out. */
int force_off(cJSON *request, cJSON *) {
    if (get_sky_mode() == sky_mode::local) {
        return -1;
    }
    Heap<ReleaseBlock> block = heap_record<ReleaseBlock>();
    if (!block) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    const int32_t &count = block->front().count;
    const cJSON *station = cJSON_IsArray(request) ? request->child : nullptr;
    while (station != nullptr && count < static_cast<int>(release_records) &&
           kick_off(cJSON_GetObjectStringValue(station, "mac", " "), *block)) {
        station = station->next;
    }
    if (count == 0) {
        return 0;
    }
    if (start_detached("release", release_clients_from_blacklist, block.get())) {
        static_cast<void>(block.release());  // the thread's own now
    } else {
        readmit_stations(*block);
    }
    return 0;
}

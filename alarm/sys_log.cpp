#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "alarm/alarm.h"
#include "heap.h"
#include "json.h"
#include "platform/nxapi.h"
#include "platform/systool.h"
#include "store.h"
#include "trace.h"
#include "upload.h"

namespace {

// Most records read at once: 92,400 bytes, too many for the stack of a thread.
constexpr int records_max = 300;

using Records = std::array<syslog_record, records_max>;

// "event_type" of each event type code; records without one are not sent.
constexpr std::array<const char *, 9> event_types{
    nullptr, "System", "Web Filter", "WAN", "WAN", "WAN", "WAN", nullptr, "LAN DHCP",
};

// Time of the newest record of the last list, not terminated when it fills the
// field. The beat thread is its only user.
char newest_time[sizeof syslog_record::time] = {};

const char *event_type(int code) {
    return code >= 0 && code < static_cast<int>(event_types.size()) ? event_types[code] : nullptr;
}

/** A text of a record: it need not be terminated. */
template <size_t N>
cJSON *add_text(cJSON *entry, JsonKey key, const char (&field)[N]) {
    char text[N + 1];
    snprintf(text, sizeof text, "%.*s", static_cast<int>(N), field);
    return json_add_string(entry, key, text);
}

/** Appends one record; false: out of memory. */
bool add_record(cJSON *list, const syslog_record &record) {
    const char *type = event_type(record.type);
    if (type == nullptr) {
        return true;
    }
    Json entry = json_object();
    return add_text(entry.get(), "event", record.event) != nullptr &&
           add_text(entry.get(), "time", record.time) != nullptr &&
           json_add_string(entry.get(), "event_type", type) != nullptr &&
           json_append(list, std::move(entry)) != nullptr;
}

/** True when the list's newest record is not that of the last list, which makes
 *  it the one to remember. */
bool is_new(const syslog_record &newest) {
    if (strncmp(newest.time, newest_time, sizeof newest_time) == 0) {
        return false;
    }
    memcpy(newest_time, newest.time, sizeof newest_time);
    return true;
}

/** Uploads records `first` to `count` - 1. */
int upload_records(const Records &records, int first, int count) {
    const Json document = json_object();
    cJSON *list = json_add_array(document.get(), "sys_log");
    bool whole = list != nullptr;
    for (int i = first; whole && i < count; ++i) {
        whole = add_record(list, records[i]);
    }
    if (!whole) {
        NX_TRACE_AS("sys_log_upload", "Create cJSON is null!\n");
        return -1;
    }
    return document_upload(document, nx_api_sys_log_upload, "nx_api_sys_log_upload",
                           "sys_log_upload");
}

}  // namespace

int sys_log_upload() {
    const Heap<Records> records = heap_record<Records>();
    if (!records) {
        NX_TRACE("Out of memory!\n");
        return -1;
    }
    const StoreValue most = store_get("nx.sys.logsnum");
    // A number below 1 leaves no record: the document goes out with an empty list.
    const int limit = most.found ? std::max(text_int(most.text), 0) : records_max;
    int count = 0;
    if (file_syslog_get_lists(records->data(), 0, &count, records_max) != 0 || count < 0 ||
        count > records_max) {
        NX_TRACE("tpi_syslog_get_lists returns error!\n");
        return -1;
    }
    if (count == 0 || !is_new((*records)[count - 1])) {
        return 0;
    }
    return upload_records(*records, std::max(count - limit, 0), count);
}

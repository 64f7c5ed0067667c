#include "net/reachability.h"

#include <cstdio>
#include <cstring>

#include "builtin.h"
#include "net/check_record.h"
#include "pipe.h"
#include "platform/systool.h"
#include "store.h"
#include "trace.h"

namespace {

constexpr char lan_ini[] = "/etc/lan.ini";

constexpr size_t output_size = 4096;

constexpr int ip_version = 4;
constexpr int payload = 32;
constexpr int reply_wait_seconds = 3;

// A server is fast with at least this many replies of this average.
constexpr int fast_replies = 5;
constexpr float fast_milliseconds = 50.0F;

/** Times of the replies, one line at a time. */
struct Replies {
    float sum = 0;
    int count = 0;
    bool legible = true;
};

void add_reply(const char *line, Replies &replies) {
    char ttl[32] = "";
    char milliseconds[32] = "";
    sscanf(line, "%*d %*s %*s %*[^:]:%*[^=]=%*[^ ] %*[^=]=%31[^ ] %*[^=]=%31[^ ] ", ttl,
           milliseconds);
    if (*ttl == '\0' && *milliseconds == '\0') {
        replies.legible = false;
        return;
    }
    replies.sum += static_cast<float>(text_int(milliseconds));
    ++replies.count;
}

/** Pings; false, with a trace line, when no output could be had. */
bool ping(const char *host, int count, char (&output)[output_size], const char *function) {
    const PingRequest request{ip_version, count, payload, reply_wait_seconds, host};
    if (cmd_get_ping_output(&request, output, sizeof output) != 0) {
        NX_TRACE_AS(function, "get result error! cmd=%s\n", host);
        return false;
    }
    return true;
}

/** Address of the LAN gateway; "0.0.0.0" stands for the one of DHCP. */
bool gateway_address(StoreValue &gateway) {
    gateway = store_get("lan.gw");
    if (strcmp(gateway.text, "0.0.0.0") != 0) {
        return true;
    }
    static_assert(sizeof gateway.text >= FILE_INI_VALUE_MAX);
    if (file_check_exist_or_not(lan_ini) == 0) {
        return false;
    }
    if (file_get_value_from_ini(lan_ini, "gateway", gateway.text) == 0) {
        NX_TRACE_AS("check_ping_gate", "can not get LanDhcpcGW form file");
        return false;
    }
    return true;
}

bool gateway_answers() {
    StoreValue gateway;
    char output[output_size];
    if (!gateway_address(gateway) || !ping(gateway.text, 1, output, "check_ping_gate")) {
        return false;
    }
    const bool answered = strstr(output, "ttl") != nullptr;
    NX_TRACE_AS("check_ping_gate", answered ? "ping gateway succeed!\n" : "ping gateway err!\n");
    return answered;
}

int result_of(bool healthy) {
    return healthy ? check_result::healthy : check_result::problem;
}

/** Both records of the server, or none. */
bool append_server(cJSON *list, const PingVerdict &verdict) {
    if (!check_record_append(list, check_type::server_reachable, result_of(verdict.answered))) {
        return false;
    }
    if (!check_record_append(list, check_type::server_reply_time, result_of(verdict.fast))) {
        cJSON_DeleteItemFromArray(list, cJSON_GetArraySize(list) - 1);
        return false;
    }
    return true;
}

}  // namespace

int cmd_get_ping_output(const PingRequest *request, char *output, size_t size) {
    if (!shell_word_is_safe(request != nullptr ? request->host : "")) {
        return 1;
    }
    char command[256];
    const int length =
        snprintf(command, sizeof command, "ping %s -%d -c %d -s %d -W %d 2>&1", request->host,
                 request->ip_version, request->count, request->size, request->wait);
    // A command that was cut short may have lost its count and would ping for ever.
    const Pipe pipe(length < static_cast<int>(sizeof command) ? pipe_open(command) : nullptr);
    if (!pipe) {
        printf("invalid cmd [%s]\n", command);
        return 1;
    }
    pipe_read(pipe, output, size);
    return 0;
}

PingVerdict judge_ping(char *output) {
    if (strstr(output, "ttl") == nullptr) {
        NX_TRACE_AS("check_ping_norvex", "ping norvex err!\n");
        return {};
    }
    NX_TRACE_AS("check_ping_norvex", "ping norvex server succeed!\n");
    Replies replies;
    char *line_end = strchr(output, '\n');
    while (line_end != nullptr && replies.legible) {
        const char *line = line_end + 1;
        line_end = strchr(line_end + 1, '\n');
        if (line_end != nullptr) {
            *line_end = '\0';
        }
        if (strstr(line, "ttl") != nullptr) {
            add_reply(line, replies);
        }
    }
    const bool fast = replies.count >= fast_replies &&
                      replies.sum / static_cast<float>(replies.count) <= fast_milliseconds;
    return {replies.legible, replies.legible && fast};
}

int check_ping_gate(cJSON *list) {
    const int result = result_of(gateway_answers());
    return check_record_append(list, check_type::gateway, result) ? 0 : -1;
}

int check_ping_norvex(cJSON *list) {
    PingVerdict verdict{};
    char output[output_size];
    if (ping(NX_CLOUD_HOST, 5, output, __func__)) {
        verdict = judge_ping(output);
    }
    if (!append_server(list, verdict)) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    return verdict.answered ? 0 : -1;
}

#include "report/dev_status.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "file.h"
#include "json.h"
#include "mac.h"
#include "measure/rates.h"
#include "measure/user_count.h"
#include "model.h"
#include "platform/systool.h"
#include "report/decimal.h"
#include "report/radio.h"
#include "store.h"
#include "trace.h"

namespace {

// A sample of the run status younger than this shows the processor use of the
// last device information instead: the reports themselves keep the processor busy.
constexpr int32_t sample_seconds = 2;

// Bytes of the address of "/etc/lan.ini", its NUL counted.
constexpr size_t dhcp_ip_text = 18;

int32_t last_status_uptime = 0;
int32_t cached_cpu = 0;

int32_t uptime() {
    return static_cast<int32_t>(system_get_uptime());
}

sys_status sample_status() {
    sys_status status{};
    systool_sys_status_get(store_get("sys.targets").text, &status);
    return status;
}

void drop_last_character(char *text) {
    const size_t length = strnlen(text, sizeof sys_status::version);
    text[length > 0 ? length - 1 : 0] = '\0';
}

StoreValue checked_value(const char *key, const char *function = __builtin_FUNCTION()) {
    StoreValue value = store_get(key);
    if (!value.found) {
        NX_TRACE_AS(function, "get value err! value:%s\n", value.text);
    }
    return value;
}

/** Cuts a line at the first separator. Returns what stands behind it, null when
 *  that is nothing. */
char *split_line(char *line, char separator) {
    char *value = strchr(line, separator);
    if (value == nullptr) {
        return nullptr;
    }
    *value++ = '\0';
    return *value != '\0' ? value : nullptr;
}

StoreValue manage_ip() {
    if (store_int("lan.type") != 0) {
        return checked_value("lan.ip", "dev_info_get");
    }
    StoreValue ip;
    get_dhcp_ip(ip.text);
    return ip;
}

/** A text of the front device, named alike in the discovery file. */
struct FrontMember {
    const char *name;
    size_t offset;
    size_t size;
};

constexpr std::array front_members{
    FrontMember{"ip", offsetof(front_dev, ip), sizeof front_dev::ip},
    FrontMember{"mac", offsetof(front_dev, mac), sizeof front_dev::mac},
    FrontMember{"sn", offsetof(front_dev, sn), sizeof front_dev::sn},
    FrontMember{"port", offsetof(front_dev, port), sizeof front_dev::port},
};

}  // namespace

int dev_info_get(cJSON *object) {
    const MacText mac = lan_mac_text(MacStyle::upper_colons);
    const StoreValue hardware = checked_value("sys.hwver");
    const StoreValue manage_mode = checked_value("nx.manage.mode");
    const StoreValue ip = manage_ip();
    char model[APMIB_VALUE_MAX];
    model_name(model);
    sys_status status = sample_status();
    drop_last_character(status.version);
    last_status_uptime = uptime();
    cached_cpu = status.cpu;
    json_add_string(object, "mode", model);
    json_add_string(object, "soft_ver", status.version);
    json_add_string(object, "mac", mac.text);
    json_add_string(object, "manage_ip", ip.text);
    json_add_string(object, "hard_ver", hardware.text);
    json_add_number(object, "manage_mode", text_int(manage_mode.text));
    json_add_string(object, "dev_type", "ap");
    json_add_number(object, "ver_type", 3);
    json_add_number(object, "is_location", store_int("nx.located"));
    return 0;
}

int get_dhcp_ip(char *ip) {
    const File file(fopen("/etc/lan.ini", "re"));
    if (!file) {
        return 0;
    }
    char line[limits::line];
    read_line(file.get(), line);
    const char *value = split_line(line, '=');
    if (value == nullptr || strncmp(line, "ip", 2) != 0) {
        NX_TRACE("get /etc/lan.ini ip err!\n");
        value = "0.0.0.0";
    }
    text_copy(ip, dhcp_ip_text, value);
    return 0;
}

int get_front_devInfo(front_dev *device) {
    *device = {};
    bool port_seen = false;
    char line[limits::line];
    const File file(fopen("/etc/lldpd.write", "re"));
    while (file && read_line(file.get(), line)) {
        const char *value = split_line(line, ' ');
        if (value == nullptr) {
            NX_TRACE("out_ptr is NULL!\n");
            continue;
        }
        for (const FrontMember &row : front_members) {
            if (strcmp(line, row.name) == 0) {
                text_copy(reinterpret_cast<char *>(device) + row.offset, row.size, value);
            }
        }
        port_seen = port_seen || strcmp(line, "port") == 0;
    }
    if (!port_seen) {
        text_copy(device->port, "lan");
    }
    return 0;
}

int front_dev_get(cJSON *object) {
    front_dev device{};
    const int result = get_front_devInfo(&device);
    json_add_string(object, "ip", device.ip);
    json_add_string(object, "mac", device.mac);
    json_add_string(object, "self_port", "lan");
    json_add_string(object, "sn", device.sn);
    json_add_string(object, "port", device.port);
    return result;
}

int run_status_get(cJSON *object) {
    const sys_status status = sample_status();
    const int32_t now = uptime();
    const bool young = now - last_status_uptime < sample_seconds;
    last_status_uptime = now;
    char run_time[16];
    snprintf(run_time, sizeof run_time, "%d", status.run_time);
    json_add_number(object, "cpu_info", young ? cached_cpu : status.cpu);
    json_add_number(object, "mem_info", status.mem);
    json_add_string(object, "run_time", run_time);
    front_dev_get(json_add_object(object, "front_dev"));
    // The cloud takes what the uplink transmits as the rate down, what it receives as
    // the rate up.
    uint64_t tx_rate = 0;
    uint64_t rx_rate = 0;
    get_eth0_cur_rate(&tx_rate, &rx_rate);
    json_add_decimal(object, "down_rate", static_cast<float>(tx_rate));
    json_add_decimal(object, "up_rate", static_cast<float>(rx_rate));
    int stations = 0;
    user_num_get(&stations);
    json_add_number(object, "user_num", stations);
    return 0;
}

int ap_status_get(cJSON *object) {
    rf_rule_get(json_add_array(object, "rf_rule"));
    return 0;
}

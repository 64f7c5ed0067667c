#include "net/load_checks.h"

#include <array>
#include <cstdio>

#include "band.h"
#include "file.h"
#include "measure/rates.h"
#include "measure/user_count.h"
#include "net/ap_param.h"
#include "net/check_record.h"
#include "pipe.h"
#include "platform/wifi.h"
#include "store.h"
#include "trace.h"

namespace {

constexpr int busy_channel = 61;          // per cent
constexpr double station_share = 0.8;     // of the model's limit
constexpr double throughput_share = 0.7;  // of the model's rate

const Band &band_of(int code) {
    return code == 24 ? bands[0] : bands[1];
}

bool exceeds(float rate, int model_rate) {
    return rate > throughput_share * model_rate;
}

}  // namespace

int get_cur_channel(int *channel, int band) {
    const Band &radio = band_of(band);
    if (!radio_enabled(radio)) {
        NX_TRACE("the %dg wifi disabled!\n", band);
        return -1;
    }
    wifi_radio_status status{};
    wifi_get_status_list(radio.code, 0, &status);
    *channel = text_int(status.channel);
    return 0;
}

int get_current_channel_usage(const char *ifname, int channel, int *usage) {
    if (!shell_word_is_safe(ifname)) {
        return -1;
    }
    char command[512];
    snprintf(command, sizeof command,
             "cat /proc/%s/ch_util | grep -w 'Channel:%d' | awk '{print $4}' | awk -F : "
             "'{print $2}'",
             ifname, channel);
    const Pipe pipe = pipe_open(command);
    if (!pipe) {
        return -1;
    }
    char line[80];
    read_line(pipe.get(), line);
    *usage = text_int(line);
    return 0;
}

int check_channel_usage(int band) {
    int channel = 0;
    if (get_cur_channel(&channel, band) != 0) {
        NX_TRACE("the %dg get channel err!\n", band);
        return 0;
    }
    int usage = 0;
    get_current_channel_usage(get_eth_name(band_of(band).eth_index), channel, &usage);
    return usage >= busy_channel ? -1 : 0;
}

int channel_usage(cJSON *results) {
    bool busy = false;
    for (const Band &band : bands) {
        busy = check_channel_usage(band.code) != 0 || busy;
    }
    const int result = busy ? check_result::problem : check_result::healthy;
    return check_record_append(results, check_type::channel_usage, result) ? 0 : -1;
}

int check_sta_num(cJSON *results) {
    int stations = 0;
    int limit = 0;
    user_num_get(&stations);
    const bool limited = get_ap_sta_num_max(&limit) == 0;
    const bool crowded = limited && stations > limit * station_share;
    if (!limited) {
        NX_TRACE("get ap sta num max is err!\n");
    } else if (crowded) {
        NX_TRACE("sta num is greater than 80%%!\n");
    }
    const int result = crowded ? check_result::problem : check_result::healthy;
    if (!check_record_append(results, check_type::station_count, result) || !limited) {
        return -1;
    }
    return crowded ? 1 : 0;
}

int check_wifi_throughput(cJSON *results) {
    float tx_24 = 0;
    float rx_24 = 0;
    float tx_5 = 0;
    float rx_5 = 0;
    int rate_24 = 0;
    int rate_5 = 0;
    get_wireless_cur_rate(bands[0].code, &tx_24, &rx_24);
    get_wireless_cur_rate(bands[1].code, &tx_5, &rx_5);
    get_wireless_rate_max(&rate_24, &rate_5);
    NX_TRACE("2.4g cur tx :%.2f, rx:%.2f;5g cur tx :%.2f, rx:%.2f\n", tx_24, rx_24, tx_5, rx_5);
    // What the 5 GHz radio receives is not judged.
    const bool loaded = exceeds(tx_24, rate_24) || exceeds(rx_24, rate_24) || exceeds(tx_5, rate_5);
    const int result = loaded ? check_result::problem : check_result::healthy;
    check_record_append(results, check_type::wifi_throughput, result);
    return result;
}

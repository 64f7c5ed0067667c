#include "measure/rates.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>

#include "band.h"
#include "counter.h"
#include "platform/netif.h"
#include "platform/systool.h"
#include "platform/wifi.h"
#include "shared_counter.h"
#include "store.h"

namespace {

/** Byte counters at a moment, seconds since boot. */
struct Sample {
    int32_t time;
    uint64_t rx;
    uint64_t tx;
};

class SharedSample {
  public:
    Sample load() const { return {time_.load(std::memory_order_relaxed), rx_.load(), tx_.load()}; }
    void store(const Sample &sample) {
        time_.store(sample.time, std::memory_order_relaxed);
        rx_.store(sample.rx);
        tx_.store(sample.tx);
    }

  private:
    std::atomic<int32_t> time_{0};
    SharedCounter rx_;
    SharedCounter tx_;
};

/** Bytes a second. */
struct Rates {
    uint64_t rx;
    uint64_t tx;
};

Rates rates_since(const Sample &before, const Sample &now) {
    const int32_t seconds = now.time - before.time;
    return {gain_per_second(counter_gain(now.rx, before.rx), seconds),
            gain_per_second(counter_gain(now.tx, before.tx), seconds)};
}

int32_t uptime() {
    return static_cast<int32_t>(system_get_uptime());
}

void add_counters(const char *ifname, Sample &sample) {
    if_stats stats{};
    sys_get_if_statistics(ifname, &stats);
    sample.rx += stats.rx_bytes;
    sample.tx += stats.tx_bytes;
}

struct WirelessSampler {
    const Band &band;
    const char *ssid_stem;
    SharedSample last;
};

// The stem of the 2.4 GHz radio has a point too many: only a store with keys such as
// wl2g.ssid.0.enable lets its SSIDs count.
constinit WirelessSampler sampler_24{bands[0], "wl2g.ssid.", {}};
constinit WirelessSampler sampler_5{bands[1], "wl5g.ssid", {}};

constinit SharedSample wired_sample;

Sample sample_ssids(const WirelessSampler &sampler) {
    const Band &band = sampler.band;
    Sample sample{uptime(), 0, 0};
    const StoreValue mode = store_get(radio_key(band, "mode").text);
    for (int slot = 0; slot < band.slots; ++slot) {
        if (store_int(ssid_key(sampler.ssid_stem, slot, "enable").text) != 0) {
            char ifname[WIFI_IFNAME_MAX] = {};
            get_wifi_ifname(band.code, mode.text, slot, ifname);
            add_counters(ifname, sample);
        }
    }
    return sample;
}

float megabits(uint64_t bytes_per_second) {
    return static_cast<float>(static_cast<float>(bytes_per_second) / 1048576.0 * 8.0);
}

}  // namespace

int get_wireless_cur_rate(int band, float *tx, float *rx) {
    const WirelessSampler &sampler = band == 24 ? sampler_24 : sampler_5;
    if (!radio_enabled(sampler.band)) {
        return 0;
    }
    const Sample now = sample_ssids(sampler);
    const Rates rates = rates_since(sampler.last.load(), now);
    *tx = megabits(rates.tx);
    *rx = megabits(rates.rx);
    // Both radios leave their sample in the 2.4 GHz place: a 5 GHz rate is always an
    // average since boot, and a 2.4 GHz one starts from what was sampled last.
    sampler_24.last.store(now);
    return 0;
}

int get_eth0_cur_rate(uint64_t *tx_rate, uint64_t *rx_rate) {
    const bool wan = strcmp(store_get("wans.flag").text, "1") == 0;
    Sample now{};
    add_counters(get_eth_name(wan ? ETH_NAME_WAN_UPLINK : ETH_NAME_LAN_UPLINK), now);
    now.time = uptime();
    const Rates rates = rates_since(wired_sample.load(), now);
    *tx_rate = kbit_per_second(rates.tx);
    *rx_rate = kbit_per_second(rates.rx);
    wired_sample.store(now);
    return 0;
}

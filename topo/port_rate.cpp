#include "topo/port_rate.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>

#include "counter.h"
#include "file.h"
#include "platform/systool.h"
#include "shared_counter.h"
#include "store.h"
#include "trace.h"

namespace {

constexpr char counter_file[] = "/proc/rtl865x/asicCounter";

// Written to the file, NUL included, to select a port.
constexpr char select_port[][7] = {"port 1", "port 3"};

// A line of the file begins with the counter's name; its first number counts.
struct CounterLine {
    const char *name;
    uint64_t PortCounters::*counter;
};
constexpr std::array counter_lines{
    CounterLine{"ifInOctets", &PortCounters::in_octets},
    CounterLine{"ifInUcastPkts", &PortCounters::in_unicast},
    CounterLine{"ifOutOctets", &PortCounters::out_octets},
    CounterLine{"ifOutUcastPkts", &PortCounters::out_unicast},
};

// The call before, of any port, and the bytes of each port at its own last call.
std::atomic<int32_t> last_uptime{0};
struct LastOctets {
    SharedCounter out;
    SharedCounter in;
};
LastOctets last_octets[std::size(select_port)];

void read_counter(const char *line, PortCounters &counters) {
    for (const CounterLine &row : counter_lines) {
        const size_t length = strlen(row.name);
        if (strncmp(line, row.name, length) == 0) {
            const char *rest = line + length;
            counters.*row.counter = text_uint64(rest + strcspn(rest, "0123456789"));
        }
    }
}

/** False: the port cannot be selected, and the file would show another one's counters,
 *  which is no rate of this one. */
bool show_port(int index) {
    const Fd file(open(counter_file, O_WRONLY | O_CLOEXEC));
    return file && write(file.get(), select_port[index], sizeof select_port[index]) > 0;
}

/** Keeps the new count of bytes and gives the rate since the last one. */
uint64_t rate_of(SharedCounter &last, uint64_t octets, int32_t seconds) {
    const uint64_t gain = counter_gain(octets, last.load());
    last.store(octets);
    return kbit_per_second(gain_per_second(gain, seconds));
}

}  // namespace

int serch_if_statistic_by_file_topo(const char *path, PortCounters &counters) {
    const File file(fopen(path, "re"));
    if (!file) {
        return -1;
    }
    char line[limits::line];
    while (read_line(file.get(), line)) {
        read_counter(line, counters);
    }
    return 0;
}

int sys_get_if_statistics_topo(int index, PortCounters &counters) {
    return show_port(index) ? serch_if_statistic_by_file_topo(counter_file, counters) : -1;
}

int get_port_rate(int index, PortRate &rate) {
    PortCounters counters;
    if (sys_get_if_statistics_topo(index, counters) != 0) {
        return -1;
    }
    NX_TRACE("res:%llu,%llu,%llu,%llu\n", static_cast<unsigned long long>(counters.in_octets),
             static_cast<unsigned long long>(counters.out_octets),
             static_cast<unsigned long long>(counters.in_unicast),
             static_cast<unsigned long long>(counters.out_unicast));
    const auto now = static_cast<int32_t>(system_get_uptime());
    const int32_t seconds = now - last_uptime.exchange(now, std::memory_order_relaxed);
    rate.tx = rate_of(last_octets[index].out, counters.out_octets, seconds);
    rate.rx = rate_of(last_octets[index].in, counters.in_octets, seconds);
    return 0;
}

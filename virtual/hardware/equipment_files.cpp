/* Files that shell commands of the agent read: answers of the radio driver, and
   the folder's own `ping` and `iwconfig` with the tables that they answer from. */
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "virtual/folder/files.h"
#include "virtual/hardware/equipment.h"

namespace vap {
namespace {

constexpr const char *ping_script = R"sh(#!/bin/sh
# ping of a virtual access point: it sends nothing and answers from ../run/ping,
# a host a line: NAME ADDRESS, then a time in milliseconds or "-" (lost) for each
# reply in turn, or "unknown". "*" stands for every host that has no line.
host= size=56 count=4
while [ $# -gt 0 ]; do
    case $1 in
    -c) count=$2; shift ;;
    -s) size=$2; shift ;;
    -[WwitI]) shift ;;
    -*) ;;
    *) host=$1 ;;
    esac
    shift
done
exec awk -v host="$host" -v size="$size" -v count="$count" '
$1 == host || $1 == "*" && line == "" { line = $0 }
END {
    fields = split(line, field, " ")
    if (host == "" || field[3] == "unknown") {
        printf "ping: bad address \"%s\"\n", host
        exit 1
    }
    address = fields && host !~ /^[0-9.]+$/ ? field[2] : host
    printf "PING %s (%s): %d data bytes\n", host, address, size
    for (i = 0; i < count; i++) {
        reply = fields > 2 ? field[3 + i % (fields - 2)] : "-"
        if (reply == "-") continue
        printf "%d bytes from %s: seq=%d ttl=64 time=%.3f ms\n", size + 8, address, i, reply
        if (received == 0 || reply < least) least = reply
        if (reply > most) most = reply
        sum += reply
        received++
    }
    printf "\n--- %s ping statistics ---\n", host
    printf "%d packets transmitted, %d packets received, %d%% packet loss\n", count, received,
           count ? 100 - 100 * received / count : 0
    if (received == 0) exit 1
    printf "round-trip min/avg/max = %.3f/%.3f/%.3f ms\n", least, sum / received, most
}' "${0%/*}/../run/ping"
)sh";

constexpr const char *iwconfig_script = R"sh(#!/bin/sh
# iwconfig of a virtual access point: it answers from ../run/iwconfig, an interface
# a line: NAME CHANNEL BIT-RATE.
exec awk -v name="$1" '
name == "" || $1 == name {
    printf "%-9s IEEE 802.11  Mode:Master  Channel:%s  Bit Rate=%s Mb/s\n", $1, $2, $3
    found = 1
}
END {
    if (!found) {
        printf "%-9s No such device\n", name
        exit 1
    }
}' "${0%/*}/../run/iwconfig"
)sh";

/** Replaces a file that is made from the description whenever it changes; a
 *  reader sees the old or the new one. */
void write_when_changed(const std::filesystem::path &path, const std::string &text,
                        mode_t mode = private_file) {
    if (read_file(path) == text) {
        return;
    }
    if (!make_folders(path.parent_path()) || !replace_file(path, text, Lasting::process, mode)) {
        fprintf(stderr, "vap: cannot write %s: %s\n", path.c_str(), strerror(errno));
    }
}

/** A command of the folder; one that a person has put there stays. */
void install(const std::filesystem::path &path, const char *text) {
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        write_when_changed(path, text, private_folder);
    }
}

bool file_name(const std::string &name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos;
}

std::string channel_use_text(const Radio &radio) {
    std::string text;
    for (const auto &[channel, percent] : radio.channel_use) {
        text += "Channel:" + std::to_string(channel) + " Noise:-95 Band:" + radio.bandwidth +
                " Utilization:" + std::to_string(percent) + "\n";
    }
    return text;
}

std::string ping_table(const std::vector<PingHost> &hosts) {
    std::string text;
    for (const PingHost &host : hosts) {
        text += host.name + " " + host.address;
        for (const std::optional<double> &reply : host.replies) {
            char time[40];
            snprintf(time, sizeof time, " %.3f", reply.value_or(0));
            text += reply ? time : " -";
        }
        text += host.unknown ? " unknown\n" : "\n";
    }
    return text;
}

std::string iwconfig_table(const Equipment &equipment) {
    std::string text;
    for (size_t i = 0; i < bands.size(); i++) {
        for (int slot = 0; equipment.radios[i] && slot < bands[i].slots; slot++) {
            const Radio &radio = *equipment.radios[i];
            text += ssid_interface(radio.interface, slot) + " " + radio.channel + " " +
                    radio.bit_rate + "\n";
        }
    }
    return text;
}

}  // namespace

void write_equipment_files(const Equipment &equipment) {
    for (const std::optional<Radio> &radio : equipment.radios) {
        if (radio && file_name(radio->interface)) {
            write_when_changed(host_path("/proc/" + radio->interface + "/ch_util"),
                               channel_use_text(*radio));
        }
    }
    write_when_changed(folder() / "run/ping", ping_table(equipment.ping));
    write_when_changed(folder() / "run/iwconfig", iwconfig_table(equipment));
    install(folder() / "bin/ping", ping_script);
    install(folder() / "bin/iwconfig", iwconfig_script);
}

}  // namespace vap

#include "tests/report/rich_device.h"

#include <fstream>

#include "paths.h"
#include "report/clients.h"

namespace test {
namespace {

vap::Json station_json(const StationSpec &station) {
    return {{"band", station.band},
            {"ssid", station.ssid},
            {"ip", station.ip},
            {"signal", -40 - station.ssid},
            {"os", station.os},
            {"in_arp", station.in_arp},
            {"since", -station.online},
            {"up", {{"bytes", station.up}, {"rate", station.up_rate}}},
            {"down", {{"bytes", station.down}, {"rate", station.down_rate}}}};
}

vap::Json rich_hardware() {
    return vap::Json::parse(R"-({
        "radios": {"24": {"channel": 6, "bandwidth": 20},
                   "5": {"channel": 149, "bandwidth": 80, "upstream": "0c:aa:bb:cc:dd:ee"}},
        "bssids": ["02:00:00:00:b0:00", "02:00:00:00:b0:01", "02:00:00:00:b0:02",
                   "02:00:00:00:b0:03", "02:00:00:00:b0:04", "02:00:00:00:b0:05",
                   "02:00:00:00:b0:06", "02:00:00:00:b0:07"],
        "scan": {"24": [{"ssid": "Harbour \"Cafe\"", "bssid": "0a:bc:de:f0:00:01", "channel": 1,
                         "signal": -61, "bandwidth": 20},
                        {"ssid": "", "bssid": "0a:bc:de:f0:00:02", "channel": 6,
                         "signal": -72, "bandwidth": 20},
                        {"ssid": "%s%d", "bssid": "0a:bc:de:f0:00:03", "channel": 11,
                         "signal": -80, "bandwidth": 40}],
                 "5": [{"ssid": "Harbour Cafe 5", "bssid": "0a:bc:de:f0:00:05", "channel": 36,
                        "signal": -66, "bandwidth": 80}]},
        "interfaces": {"br0": {"mac": "0a:1b:2c:3d:4e:5f"},
                       "eth0": {"rx": {"bytes": 0, "rate": 12800}, "tx": {"bytes": 0, "rate": 25600}},
                       "wlan1": {"rx": {"bytes": 0, "rate": 1024}, "tx": {"bytes": 0, "rate": 4096}},
                       "wlan0-va1": {"rx": {"bytes": 0, "rate": 512}, "tx": {"bytes": 0, "rate": 3072}}},
        "arp": {"02:aa:00:00:00:03": "192.168.1.99"},
        "system": {"cpu": 23, "mem": 45, "version": "V1.0.0.11(10862)"}})-");
}

const std::vector<std::pair<std::string, std::string>> rich_settings{
    {"ap.apname", "ZX-A5V1.0"},
    {"sys.hwver", "V2.0"},
    {"nx.manage.mode", "1"},
    {"nx.located", "1"},
    {"lan.type", "0"},
    {"wl.identifyOS_en", "1"},
    {"nx.wireless_timestamp", "1699999999"},
    {"nx.maint_timestamp", "1700000001"},
    {"sys.schedulereboot.enable", "1"},
    {"sys.schedulereboot.type", "1"},
    {"sys.schedulereboot.start_time", "04:30"},
    {"sys.schedulereboot.wday", "01111100"},
    {"flow.up", "1048575"},
    {"flow.down", "18446744073709551615"},
    {"wl2g.public.channel", "11"},
    {"wl2g.public.current_power", "18"},
    {"wl2g.public.rssi_max", "-85"},
    {"wl2g.public.countrycode_other", "1"},
    {"wl5g.public.mode", "apclient"},
    {"wl5g.public.channel", "36"},
    {"wl5g.public.current_power", "20"},
    {"wl5g.public.rssi_max", "-90"},
    // An open shut-off does not count while it is off.
    {"wl2g.ssid0.nx.time_close", "0"},
    {"wl2g.ssid0.nx.timeval", "23:00-06:00"},
    {"wl2g.ssid1.security", "wpapsk"},
    {"wl2g.ssid1.wpapsk_type", "psk"},
    {"wl2g.ssid1.wpapsk_crypto", "tkip"},
    {"wl2g.ssid1.wpapsk_psk", "a \"b\" %n"},
    {"wl2g.ssid1.hide", "1"},
    {"wl2g.ssid1.vlanid", "20"},
    {"wl2g.ssid2.enable", "1"},
    {"wl2g.ssid2.nx.time_close", "1"},
    {"wl2g.ssid2.nx.timeval", "23:00-06:00"},
    {"wl2g.ssid3.security", "wpapsk"},
    {"wl2g.ssid3.wpapsk_type", "psk psk2"},
    {"wl2g.ssid3.wpapsk_crypto", "tkip+aes"},
    {"wl2g.ssid3.wpapsk_psk", "never told"},
    {"wl2g.ssid4.security", "wpa2"},
    {"wl2g.ssid4.wpapsk_type", "psk2"},
    {"wl2g.ssid4.wpapsk_crypto", "TKIP"},
    {"wl2g.ssid5.security", "none"},
    {"wl2g.ssid5.wpapsk_type", "psk2"},  // left over
    {"wl2g.ssid5.sta_isolate", "1"},
    {"wl2g.ssid5.guest_enable", "1"},
    {"wl2g.ssid5.type", "1"},
    {"wl5g.ssid1.enable", "1"},
    {"wl5g.ssid1.ssid", "Office %d \xc3\xa9"},
};

}  // namespace

ReportDevice::ReportDevice() {
    set_all({{"wl2g.public.enable", "0"}, {"wl5g.public.enable", "0"}});
    build(user_list_get);
    set_all({{"wl2g.public.enable", "1"}, {"wl5g.public.enable", "1"}});
}

void ReportDevice::set_all(const std::vector<std::pair<std::string, std::string>> &values) {
    for (const auto &[key, value] : values) {
        set(key, value);
    }
}

void ReportDevice::associate(const std::vector<StationSpec> &stations) {
    vap::Json patch = vap::Json::object();
    for (const StationSpec &station : stations) {
        patch[station.mac] = station_json(station);
    }
    vap::patch_hardware({{"stations", patch}});
}

RichDevice::RichDevice() {
    vap::patch_hardware(rich_hardware());
    set_all(rich_settings);
    write_file("/etc/lan.ini", "ip=192.168.1.20\ngateway=192.168.1.1\n");
    write_file("/etc/lldpd.write", "ip 192.168.1.2\nmac 0c:00:00:00:00:01\nsn SN123\n");
    // The one of zero seconds joins in 10, the fifth one's SSID is off, and that of the
    // sixth is the client's.
    vap::patch_hardware({{"stations", vap::Json::parse(R"({
        "02:aa:00:00:00:01": {"band": 24, "since": -100, "ip": "192.168.1.11", "signal": -40,
            "os": 9, "up": {"bytes": 102400, "rate": 0}, "down": {"bytes": 204800, "rate": 0}},
        "02:aa:00:00:00:0f": {"band": 24, "since": 10},
        "02:aa:00:00:00:03": {"band": 24, "ssid": 2, "since": -3, "ip": "192.168.1.13",
            "signal": -42, "os": 12, "up": {"bytes": 1, "rate": 0},
            "down": {"bytes": 4294967295, "rate": 0}},
        "02:aa:00:00:00:02": {"band": 24, "since": -64, "ip": "192.168.1.12", "signal": -40,
            "os": 2, "in_arp": false, "up": {"bytes": 65536, "rate": 0},
            "down": {"bytes": 1000, "rate": 0}},
        "02:aa:00:00:00:04": {"band": 24, "ssid": 5, "since": -50},
        "02:aa:00:00:01:00": {"band": 5, "since": -50},
        "02:aa:00:00:01:01": {"band": 5, "ssid": 1, "since": -10, "ip": "192.168.1.15",
            "signal": -41, "os": 1, "up": {"bytes": 5120, "rate": 0},
            "down": {"bytes": 0, "rate": 0}}})")}});
}

void RichDevice::expect_golden(const std::string &name, const std::string &text) {
    std::ifstream file(NORVEX_SOURCE_DIR "/tests/report/golden/" + name + ".json");
    const std::string golden{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(text + "\n", golden) << name;
}

}  // namespace test

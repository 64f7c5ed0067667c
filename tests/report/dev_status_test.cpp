#include "report/dev_status.h"

#include "measure/rates.h"
#include "tests/report/rich_device.h"

namespace {

class DevStatus : public test::ReportDevice {
  protected:
    static vap::Json dev_info() { return build(dev_info_get, false).json; }
    static vap::Json run_status() { return build(run_status_get, false).json; }
};

TEST_F(DevStatus, CutsModelAndVersion) {
    struct Row {
        const char *name, *mode;
    } const rows[] = {
        {"ZX-A1V1.0", "ZX-A1"}, {"%s%n-V1.0", "%s%n-"}, {"V1.0", ""}, {"abc", ""}, {"", ""}};
    for (const Row &row : rows) {
        set("ap.apname", row.name);
        EXPECT_EQ(dev_info()["mode"], row.mode);
    }
    vap::fail("systool_sys_status_get");
    EXPECT_EQ(dev_info()["soft_ver"], "") << "no version to cut";
}

TEST_F(DevStatus, FindsTheManagementAddress) {
    set("lan.type", "1");
    set("lan.ip", "2001:db8::192:168:10:20");
    EXPECT_EQ(dev_info()["manage_ip"], "2001:db8::192:168:10:20") << "as it is stored";
    set("lan.type", "0");
    EXPECT_EQ(dev_info()["manage_ip"], "") << "no file";
    struct Row {
        const char *file, *ip;
    } const rows[] = {
        {"ipaddr=192.168.0.10\nip=1.1.1.1\n", "192.168.0.10"},  // begins with "ip"
        {"gateway=10.1.2.1\nip=10.1.2.3\n", "0.0.0.0"},         // the first line alone counts
        {"ip=\n", "0.0.0.0"},
        {"", "0.0.0.0"},
        {"ip=1234567890123456789012\n", "12345678901234567"},  // 17 characters fit
    };
    for (const Row &row : rows) {
        write_file("/etc/lan.ini", row.file);
        EXPECT_EQ(dev_info()["manage_ip"], row.ip) << row.file;
    }
}

TEST_F(DevStatus, ReadsTheFrontDevice) {
    struct Row {
        const char *file, *device;
    } const rows[] = {
        {"", R"({"ip":"","mac":"","self_port":"lan","sn":"","port":"lan"})"},
        // A later line holds; what is no key, and what has no value, does not.
        {"port 7\nsn a b\nip 1.1.1.1\nIP 2.2.2.2\nother x\nmac\nip 3.3.3.3\nsn \n",
         R"({"ip":"3.3.3.3","mac":"","self_port":"lan","sn":"a b","port":"7"})"},
        {"ip 123456789012345678\nport 123456789\n",
         R"({"ip":"123456789012345","mac":"","self_port":"lan","sn":"","port":"1234567"})"},
    };
    EXPECT_EQ(build(front_dev_get, false).json.dump(), rows[0].device) << "no file";
    for (const Row &row : rows) {
        write_file("/etc/lldpd.write", row.file);
        EXPECT_EQ(build(front_dev_get, false).json.dump(), row.device);
    }
}

TEST_F(DevStatus, ShowsTheProcessorUseOfTheLastDeviceInformation) {
    const auto busy = [](int cpu) { vap::patch_hardware({{"system", {{"cpu", cpu}}}}); };
    busy(10);
    vap::advance(100);
    dev_info();
    busy(20);
    vap::advance(1);
    EXPECT_EQ(run_status()["cpu_info"], 10) << "1 second after the device information";
    vap::advance(1);
    EXPECT_EQ(run_status()["cpu_info"], 10) << "1 second after the run status before";
    vap::advance(2);
    EXPECT_EQ(run_status()["cpu_info"], 20);
    EXPECT_EQ(run_status()["cpu_info"], 10) << "only device information changes what is kept";
    EXPECT_EQ(run_status()["run_time"], "104");
}

TEST_F(DevStatus, CallsWhatTheUplinkTransmitsTheRateDown) {
    vap::patch_hardware(
        {{"interfaces",
          {{"eth0",
            {{"rx", {{"bytes", 0}, {"rate", 2048}}}, {"tx", {{"bytes", 0}, {"rate", 10240}}}}}}}});
    uint64_t tx = 0;
    uint64_t rx = 0;
    get_eth0_cur_rate(&tx, &rx);
    vap::advance(10);
    const vap::Json status = run_status();
    EXPECT_EQ(status["down_rate"], "80.00");
    EXPECT_EQ(status["up_rate"], "16.00");
    vap::patch_hardware(
        {{"interfaces",
          {{"eth0", {{"rx", {{"bytes", 1ULL << 40}}}}}, {"eth1", {{"rx", {{"bytes", 2048}}}}}}}});
    EXPECT_EQ(run_status()["up_rate"], "8589934592.00") << "more than 32 bits, within a second";
    set("wans.flag", "1");
    EXPECT_EQ(run_status()["up_rate"], "16.00") << "the other uplink, whose count is smaller";
}

}  // namespace

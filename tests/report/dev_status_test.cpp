#include "report/dev_status.h"

#include "net/samplers.h"
#include "tests/report/rich_device.h"

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

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
    set_all({{"lan.type", "1"}, {"lan.ip", "10.0.0.9"}});
    EXPECT_EQ(dev_info()["manage_ip"], "10.0.0.9");
    set("lan.ip", "2001:db8::192:168:10:20");
    EXPECT_EQ(dev_info()["manage_ip"], "2001:db8::192:168:10:20") << "as it is stored";
    set("lan.type", "0");
    EXPECT_EQ(dev_info()["manage_ip"], "") << "no file";
    struct Row {
        const char *file, *ip;
    } const rows[] = {
        {"ip=192.168.0.10\nip=1.1.1.1\n", "192.168.0.10"},
        {"ipaddr=10.1.2.3", "10.1.2.3"},                 // the key only begins with "ip"
        {"gateway=10.1.2.1\nip=10.1.2.3\n", "0.0.0.0"},  // the first line alone counts
        {"ip\n", "0.0.0.0"},
        {"ip=\n", "0.0.0.0"},
        {"", "0.0.0.0"},
        {"ip=1234567890123456789012\n", "12345678901234567"},  // 17 characters fit
        {"ip=a=b\n", "a=b"},
    };
    for (const Row &row : rows) {
        write_file("/etc/lan.ini", row.file);
        EXPECT_EQ(dev_info()["manage_ip"], row.ip) << row.file;
    }
}

TEST_F(DevStatus, TracesMissingSettings) {
    EXPECT_THAT(output_of([] { dev_info(); }), Not(HasSubstr("sys.hwver")));
    const std::string traced = output_of([] { dev_info(); });
    EXPECT_THAT(traced, HasSubstr("[dev_info_get]["));
    EXPECT_THAT(traced, HasSubstr("] : get value err! value:\n")) << "nx.manage.mode is not set";
    set("nx.manage.mode", "1");
    EXPECT_EQ(output_of([] { dev_info(); }), "");
}

TEST_F(DevStatus, ReadsTheFrontDevice) {
    struct Row {
        const char *file, *device;
    } const rows[] = {
        {"", R"({"ip":"","mac":"","self_port":"lan","sn":"","port":"lan"})"},
        {"ip 1.2.3.4\nmac 0c:00:00:00:00:01\n",
         R"({"ip":"1.2.3.4","mac":"0c:00:00:00:00:01","self_port":"lan","sn":"","port":"lan"})"},
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
    EXPECT_THAT(output_of([] { build(front_dev_get, false); }), Not(HasSubstr("out_ptr")));
    write_file("/etc/lldpd.write", "mac\n");
    EXPECT_THAT(output_of([] { build(front_dev_get, false); }), HasSubstr("out_ptr is NULL!\n"));
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
    int tx = 0;
    int rx = 0;
    get_eth0_cur_rate(&tx, &rx);
    vap::advance(10);
    const vap::Json status = run_status();
    EXPECT_EQ(status["down_rate"], "80.00");
    EXPECT_EQ(status["up_rate"], "16.00");
}

}  // namespace

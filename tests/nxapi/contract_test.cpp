/**
 * The library as an agent meets it: through the contract, with its settings file
 * in a device folder.
 */
#include <fcntl.h>
#include <netinet/tcp.h>

#include "nxapi/transport.h"
#include "tests/nxapi/cloud_device.h"

namespace {

using test::Console;
using test::eventually;

/** What the library asked to have watched. */
struct Watch {
    int fd = -1;
    int event = -1;
    nx_poll_cb callback = nullptr;
    int result = 0; /**< of the hook */
};

Watch watch;

int start_watch(int fd, int event, nx_poll_cb callback) {
    watch.fd = fd;
    watch.event = event;
    watch.callback = callback;
    return watch.result;
}

class Contract : public ::testing::Test {
  protected:
    Contract() {
        vap::create_device(folder.path() / "ap", {.serial = "SN1"});
        vap::open_device(folder.path() / "ap", {.restarts_process = false});
        watch = {};
        assign_poll_start(start_watch);
        assign_poll_stop([](void *) { return 0; });
    }
    ~Contract() override {
        nxapi::close_cloud();
        vap::close_device();
    }

    void write_settings(const std::string &text) {
        std::ofstream(folder.path() / "ap/root/etc/nxapi.conf") << text;
    }

    /** What the library says on standard error meanwhile. */
    template <typename Act>
    static std::string said_during(Act act) {
        ::testing::internal::CaptureStderr();
        act();
        return ::testing::internal::GetCapturedStderr();
    }

    /** What an agent's main thread does. */
    static void work() {
        pollfd ready{watch.fd, POLLIN, 0};
        if (poll(&ready, 1, 0) > 0) {
            watch.callback(nullptr, watch.fd, POLLIN);
        }
    }

    test::TempFolder folder;
};

TEST_F(Contract, CarriesACommandAndEveryUpload) {
    const test::Broker broker;
    Console console(broker);
    write_settings("broker=" + broker.url() + "\n");
    ASSERT_EQ(nx_api_lib_init(), 0);
    EXPECT_EQ(watch.event, NX_POLL_READ);
    nx_slot slots[NX_NET_SLOTS] = {};
    slots[18].callback = test::echo_command;
    EXPECT_EQ(nx_api_enable_m_net_fun(slots), 0);
    nx_basic_info info{};
    std::strcpy(info.serial, "SN1");
    std::strcpy(info.credential, "qzvur");
    EXPECT_EQ(nx_api_set_basic_info(&info), 0);

    const std::string image = "/tmp/image" + std::string(246, '\0');
    const std::string config = "name" + std::string(28, '\0') + "a=1\nb";
    struct Row {
        int result;
        const char *kind;
        std::string payload;
    };
    const Row rows[] = {
        {nx_api_bind_info_upload("{1}", 3), "binding", "{1}"},
        {nx_api_dir_info_set(image.data(), 256), "image_path", "/tmp/image"},
        {nx_api_config_upload(config.data(), static_cast<int>(config.size())), "config", config},
        {nx_api_duplicate_config_upload(config.data(), 33), "config_copy", config.substr(0, 33)},
        {nx_api_manage_info_upload("{2}", 3), "manage", "{2}"},
        {nx_api_alarm_upload("{3}", 3), "alarm", "{3}"},
        {nx_api_sys_log_upload("{4}", 3), "system_log", "{4}"},
        {nx_api_sys_log_upload_v1("line", 4), "running_log", "line"},
        {nx_api_net_check_back("{5}", 4), "net_check", "{5}"},  // counts its NUL
        {nx_api_radio_optimiza_back("{6}", 4), "radio_optimization", "{6}"},
        {dev_upgrade_notice("{7}", 3), "upgrade", "{7}"},
    };
    console.publish("norvex/v1/SN1/cmd/net/18", "{}");
    for (const Row &row : rows) {
        EXPECT_EQ(row.result, 0) << row.kind;
        const std::string topic = std::string("norvex/v1/SN1/up/") + row.kind;
        eventually([&] {
            console.loop();
            return !console.on(topic).empty();
        });
        EXPECT_EQ(console.last(topic).payload, row.payload) << row.kind;
    }
    EXPECT_EQ(console.last("norvex/v1/SN1/up/identity").payload.find("qzvur"), std::string::npos);
    eventually([&] {
        console.publish("norvex/v1/SN1/cmd/net/18", "{}");
        console.loop();
        work();
        return !console.on("norvex/v1/SN1/rsp/net/18").empty();
    });
    EXPECT_EQ(console.last("norvex/v1/SN1/rsp/net/18").payload, "<{}>");
}

TEST_F(Contract, LeavesDescriptorsAndSignalsOfChildrenAlone) {
    const test::Broker broker;
    Console console(broker);
    std::vector<bool> before(256);
    for (int fd = 0; fd < 256; ++fd) {
        before[static_cast<size_t>(fd)] = fcntl(fd, F_GETFD) == -1;
    }
    struct sigaction handling {};
    handling.sa_handler = SIG_DFL;
    sigaction(SIGPIPE, &handling, nullptr);

    write_settings("broker=" + broker.url() + "\n");
    ASSERT_EQ(nx_api_lib_init(), 0);
    nx_basic_info info{};
    std::strcpy(info.serial, "SN1");
    EXPECT_EQ(nx_api_set_basic_info(&info), 0);
    eventually([&] {
        console.loop();
        return !console.on("norvex/v1/SN1/status").empty();
    });

    sigaction(SIGPIPE, nullptr, &handling);
    EXPECT_EQ(handling.sa_handler, SIG_DFL);
    int opened = 0;
    int prompt = 0;  // sockets that do not wait for the other end's acknowledgement
    for (int fd = 0; fd < 256; ++fd) {
        const int flags = fcntl(fd, F_GETFD);
        if (before[static_cast<size_t>(fd)] && flags != -1) {
            ++opened;
            EXPECT_EQ(flags, FD_CLOEXEC) << fd;
            int no_delay = 0;
            socklen_t size = sizeof(no_delay);
            getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, &size);
            prompt += no_delay;
        }
    }
    EXPECT_GE(opened, 8) << "two for waking, the gate, its clock, libmosquitto's pair, and the "
                            "connection twice";
    EXPECT_EQ(prompt, 2) << "the connection and its duplicate";
    // The library's thread leaves signals such as SIGTERM to the agent's own.
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::stringstream status;
        status << std::ifstream(task.path() / "status").rdbuf();
        if (status.str().starts_with("Name:\tnxapi\n")) {
            const std::string blocked = status.str().substr(status.str().find("SigBlk:"));
            EXPECT_NE(std::stoull(blocked.substr(7), nullptr, 16) >> (SIGTERM - 1) & 1U, 0U);
        }
    }
}

TEST_F(Contract, GoesOnWithoutACloud) {
    EXPECT_EQ(said_during([] { EXPECT_EQ(nx_api_lib_init(), 0); }),
              "nxapi: no cloud: cannot read /etc/nxapi.conf (No such file or directory)\n");
    const nx_slot slots[NX_DEV_SLOTS] = {};
    EXPECT_EQ(nx_api_enable_m_dev_fun(slots), 0);
    nx_basic_info info{};
    std::strcpy(info.serial, "SN1");
    EXPECT_EQ(nx_api_set_basic_info(&info), 0);
    EXPECT_EQ(nx_api_alarm_upload("{}", 2), -1);
    EXPECT_EQ(said_during([] { EXPECT_EQ(nx_api_lib_init(), -1); }),
              "nxapi: the library is initialised a second time\n");
}

TEST_F(Contract, DoesNotStartOnMalformedSettings) {
    write_settings("broker=mqtt://h\nkeepalive=5\n");
    EXPECT_EQ(said_during([] { EXPECT_EQ(nx_api_lib_init(), -1); }),
              "nxapi: /etc/nxapi.conf, line 2: there is no setting of this name\n");
}

TEST_F(Contract, FailsWhereTheAgentCannotWatch) {
    write_settings("");
    watch.result = -1;
    EXPECT_NE(said_during([] { EXPECT_EQ(nx_api_lib_init(), -1); }), "");
}

TEST_F(Contract, FaultsOfTheSettingsDecideResults) {
    write_settings("fault=nx_api_enable_m_wlan_fun:-1\nfault=nx_api_alarm_upload:3\n");
    said_during([] { EXPECT_EQ(nx_api_lib_init(), 0); });
    const nx_slot slots[NX_DEV_SLOTS] = {};
    EXPECT_EQ(nx_api_enable_m_wlan_fun(slots), -1);
    EXPECT_EQ(nx_api_enable_m_net_fun(slots), 0);
    EXPECT_EQ(nx_api_alarm_upload("{}", 2), 3);
    EXPECT_EQ(nx_api_sys_log_upload("{}", 2), -1);
    nxapi::close_cloud();
    write_settings("fault=nx_api_lib_init:-5\n");
    said_during([] { EXPECT_EQ(nx_api_lib_init(), -5); });
}

TEST_F(Contract, RefusesASerialThatNoTopicCanHold) {
    write_settings("");
    said_during([] { EXPECT_EQ(nx_api_lib_init(), 0); });
    nx_basic_info info{};
    for (const char *serial : {"", "a/b", "a+", "#", "a\nb", "\xff"}) {
        std::strcpy(info.serial, serial);
        EXPECT_EQ(said_during([&] { EXPECT_EQ(nx_api_set_basic_info(&info), -1); }),
                  "nxapi: \"" + std::string(serial) +
                      "\" is no serial number: it has 1 to 32 characters and none of + # /\n");
    }
    std::strcpy(info.serial, "SN 1.2-\xc3\xbc");
    EXPECT_EQ(nx_api_set_basic_info(&info), 0);
    EXPECT_FALSE(nxapi::is_serial(std::string_view("a\0b", 3)));
}

}  // namespace

/**
 * System tools.
 */
#include "platform/systool.h"

#include "platform/apmib.h"
#include "tests/support/support.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using vap::Json;

class Systool : public test::Device {
  protected:
    static int import(const std::string &text) {
        std::string copy = text;
        return systool_file_handle(SYSTOOL_FILE_IMPORT, copy.data(), static_cast<int>(copy.size()));
    }
};

constexpr const char *head = "#The word of \"Default\" must not be removed\nDefault\n";

TEST_F(Systool, ExportReadsBackAsImport) {
    SetValue("text", "two\nlines\\");
    CommitCfm();
    SetValue("text", "pending only");
    char path[SYSTOOL_FILE_NAME_MAX] = "left over";
    ASSERT_EQ(systool_file_handle(SYSTOOL_FILE_EXPORT, path, 0), 0);
    const std::string text = read_file(path);
    EXPECT_THAT(text, StartsWith("ap.apname=ZX-A5V1.0\n"));
    FILE *const through_libc = fopen(path, "r");
    ASSERT_NE(through_libc, nullptr) << "the agent opens the path that it was given";
    fclose(through_libc);

    set("text", "changed since");
    ASSERT_EQ(import(head + text), 0);
    EXPECT_EQ(get("text"), "two\nlines\\");
}

TEST_F(Systool, RefusedImportChangesNothing) {
    const std::string rows[] = {
        "a=1\n",  // neither of the leading lines
        "#The word of \"Default\" must not be removed\na=1\n",
        head + std::string("a=1\n\nb=2\n"),
        "",
    };
    for (const std::string &row : rows) {
        EXPECT_EQ(import(row), -1) << row;
        EXPECT_EQ(get("a"), "(absent)");
    }
    EXPECT_EQ(import(head + std::string("a=1\nb=2")), 0) << "the last line end may be missing";
    EXPECT_EQ(get("a") + get("b"), "12");
}

TEST_F(Systool, ExportThatFailsGivesNoName) {
    vap::fail("systool_file_handle");
    char path[SYSTOOL_FILE_NAME_MAX] = "left over";
    EXPECT_EQ(systool_file_handle(SYSTOOL_FILE_EXPORT, path, 0), -1);
    EXPECT_STREQ(path, "");
}

TEST_F(Systool, StatusComesFromTheDescriptionAndTheClock) {
    vap::patch_hardware({{"system", {{"cpu", 91}, {"mem", 50}, {"rom", 89}, {"version", "V9"}}}});
    vap::advance(4000);
    sys_status status;
    ASSERT_EQ(systool_sys_status_get("any", &status), 0);
    EXPECT_EQ(status.cpu, 91);
    EXPECT_EQ(status.mem, 50);
    EXPECT_EQ(status.rom, 89);
    EXPECT_EQ(status.run_time, 4000);
    EXPECT_STREQ(status.version, "V9\n");
    EXPECT_EQ(system_get_uptime(), 4000);
}

TEST_F(Systool, StoppingOtherProcessesFreesMemoryAndEndsThem) {
    vap::patch_hardware({{"processes", Json::array({"dhcpcd_lan", "norvex"})},
                         {"memory", {{"free", 1000}, {"freed_by_stopping", 500}}}});
    EXPECT_NE(monitor_check_exist("dhcpcd_lan"), 0);
    EXPECT_EQ(monitor_check_exist("lldpd"), 0);
    EXPECT_EQ(monitor_mstart("lldpd -B -f -c /etc/lldpd.conf"), 0);
    EXPECT_NE(monitor_check_exist("lldpd"), 0);
    EXPECT_EQ(systool_get_free_memory_size(), 1000u);

    EXPECT_EQ(systool_kill_all_process(0, "norvex"), -1);
    EXPECT_EQ(systool_get_free_memory_size(), 1000u);
    EXPECT_EQ(systool_kill_all_process(1, "norvex"), 0);
    EXPECT_EQ(systool_get_free_memory_size(), 1500u);
    EXPECT_EQ(monitor_check_exist("dhcpcd_lan"), 0);
    EXPECT_EQ(monitor_check_exist("lldpd"), 0);
    EXPECT_NE(monitor_check_exist("norvex"), 0);
    EXPECT_EQ(monitor_stop("norvex"), 0);
    EXPECT_EQ(monitor_check_exist("norvex"), 0) << "runs on, but nobody supervises it";
    EXPECT_EQ(monitor_mstart("ntdd"), 0);
    EXPECT_NE(monitor_check_exist("ntdd"), 0) << "started after the others were stopped";
}

TEST_F(Systool, SystemLogIsReadInParts) {
    Json log = Json::array();
    for (int i = 0; i < 5; ++i) {
        log.push_back({{"time", "t" + std::to_string(i)}, {"type", i}, {"event", "e"}});
    }
    vap::patch_hardware({{"syslog", log}});
    std::vector<syslog_record> records(10);
    int count = -1;
    const auto times = [&] {
        std::vector<std::string> texts;
        for (int i = 0; i < count; ++i) {
            texts.emplace_back(records[static_cast<size_t>(i)].time);
        }
        return texts;
    };
    EXPECT_EQ(file_syslog_get_lists(records.data(), 0, &count, 3), 0);
    EXPECT_THAT(times(), ElementsAre("t2", "t3", "t4")) << "the newest that fit";
    EXPECT_EQ(file_syslog_get_lists(records.data(), 3, &count, 10), 0);
    EXPECT_THAT(times(), ElementsAre("t3", "t4"));
    EXPECT_EQ(records[0].type, 3);
    EXPECT_EQ(file_syslog_get_lists(records.data(), 9, &count, 10), 0);
    EXPECT_EQ(count, 0);
    vap::patch_hardware({{"syslog", Json::array()}});
    EXPECT_EQ(file_syslog_get_lists(records.data(), 0, &count, 10), 0);
    EXPECT_EQ(count, 0);
    vap::patch_hardware({{"syslog", Json::array({{{"type", "text"}}})}});
    EXPECT_EQ(file_syslog_get_lists(records.data(), 0, &count, 10), -1);
}

TEST_F(Systool, WritesOneTextThroughAFormat) {
    EXPECT_EQ(do_file_cmd("/etc/lldpd.conf", FILE_CMD_TRUNCATE, "a=%s\n", "1"), 0);
    EXPECT_EQ(do_file_cmd("/etc/lldpd.conf", FILE_CMD_APPEND, "100%%=%s\n", "%s %n"), 0);
    EXPECT_EQ(read_file("/etc/lldpd.conf"), "a=1\n100%=%s %n\n");
    for (const char *format : {"no value\n", "%s %s", "%d", "%", "%5s"}) {
        EXPECT_EQ(do_file_cmd("/etc/lldpd.conf", FILE_CMD_TRUNCATE, format, "x"), -1) << format;
    }
    EXPECT_EQ(read_file("/etc/lldpd.conf"), "a=1\n100%=%s %n\n");
    EXPECT_EQ(do_file_cmd("/etc/passwd", FILE_CMD_TRUNCATE, "%s", "of the device only"), 0);
    EXPECT_EQ(read_file("/etc/passwd"), "of the device only");
}

TEST_F(Systool, ReadsAnIniFile) {
    EXPECT_EQ(file_check_exist_or_not("/etc/lan.ini"), 0);
    write_file("/etc/lan.ini", "ipaddr=1\nip=10.0.0.2\r\nempty=\nlong=" + std::string(200, 'l'));
    EXPECT_NE(file_check_exist_or_not("/etc/lan.ini"), 0);
    char value[FILE_INI_VALUE_MAX] = "kept";
    EXPECT_EQ(file_get_value_from_ini("/etc/lan.ini", "gateway", value), 0);
    EXPECT_EQ(file_get_value_from_ini("/etc/none.ini", "ip", value), 0);
    EXPECT_STREQ(value, "kept");
    EXPECT_NE(file_get_value_from_ini("/etc/lan.ini", "ip", value), 0);
    EXPECT_STREQ(value, "10.0.0.2");
    EXPECT_NE(file_get_value_from_ini("/etc/lan.ini", "empty", value), 0);
    EXPECT_STREQ(value, "");
    EXPECT_NE(file_get_value_from_ini("/etc/lan.ini", "long", value), 0);
    EXPECT_EQ(std::string(value), std::string(FILE_INI_VALUE_MAX - 1, 'l'));
}

TEST_F(Systool, ParameterCheckTakesPlainWordsOnly) {
    for (const char *word : {"192.0.2.1", "cloud.norvex.example", "wlan0-vxd", "2001:db8::1",
                             "http://127.0.0.1:80/a_b@c"}) {
        EXPECT_NE(prod_system_param_valid(word), 0) << word;
    }
    for (const char *word :
         {"", "-f", "a b", "a;b", "a'b", "a$b", "a`b", "a\nb", "a*", "a\\b", "\xc3\xbc"}) {
        EXPECT_EQ(prod_system_param_valid(word), 0) << word;
    }
    EXPECT_EQ(prod_system_param_valid(nullptr), 0);
    EXPECT_NE(prod_system_param_valid(std::string(255, 'a').c_str()), 0);
    EXPECT_EQ(prod_system_param_valid(std::string(256, 'a').c_str()), 0);
}

TEST_F(Systool, DropsTrailingZerosOfAFraction) {
    const std::pair<const char *, const char *> rows[] = {
        {"20.00", "20"},   {"8.50", "8.5"}, {"8.05", "8.05"}, {"0.00", "0"},
        {"-3.50", "-3.5"}, {"100", "100"},  {"", ""},         {"1.", "1"},
    };
    for (const auto &[before, after] : rows) {
        char text[16];
        snprintf(text, sizeof text, "%s", before);
        removeLastZero(text);
        EXPECT_STREQ(text, after);
    }
}

TEST_F(Systool, NoticesAreJournalledFinished) {
    send_msg_to_netctrl(24, "op=3");
    send_wifi_msg_handle(1, 0);
    log_debug_print("f", 7, LOG_LEVEL_ERROR, 22, "%s is %d", "fail", 3);
    EXPECT_THAT(effects(), ElementsAre("send_msg_to_netctrl 24 op=3", "send_wifi_msg_handle 1 0",
                                       "log_debug_print f 7 3 22 fail is 3"));
}

}  // namespace

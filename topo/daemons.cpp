#include "topo/daemons.h"

#include <array>
#include <cstdio>
#include <cstring>

#include "platform/systool.h"
#include "store.h"
#include "trace.h"

namespace {

constexpr char lldpd_conf[] = "/etc/lldpd.conf";

// Module number of the device's debug log.
constexpr int log_module = 5;

struct ConfLine {
    const char *format;
    const char *value;
};

int start_process(const char *name, const char *command_line, const char *function) {
    const int started = monitor_mstart(command_line);
    if (started < 0) {
        log_debug_print(function, __LINE__, LOG_LEVEL_ERROR, log_module,
                        "start %s process is fail.", name);
    }
    return started;
}

int start_once(const char *name, const char *function) {
    const int running = monitor_check_exist(name);
    return running != 0 ? running : start_process(name, name, function);
}

/** The project's id; false when it must not leave the store: it may stand in a file of
 *  lines and in a shell command only as a whole number, or as none. */
bool read_project(char (&project)[32]) {
    store_text("nx.project.id", project);
    const char *digits = *project == '-' ? project + 1 : project;
    const size_t length = strspn(digits, "0123456789");
    return digits[length] == '\0' && (length > 0 || *project == '\0');
}

void write_lldpd_conf() {
    char serial[32];
    char project[32];
    factory_text("ZQ_ATE_SN", serial, sizeof serial);
    serial[strcspn(serial, "\n")] = '\0';
    if (!read_project(project)) {
        project[0] = '\0';
    }
    // The order counts: a new project replaces the third line by its number.
    const std::array lines{
        ConfLine{"work_mode=%s\n", "ap"},
        ConfLine{"serial_number=%s\n", serial},
        ConfLine{"project_id=%s\n", project},
        ConfLine{"txrx_ifnames=%s\n", "br0,eth0,wlan0,wlan1,wlan0-vxd,wlan1-vxd"},
        ConfLine{"tx_ifnames=%s\n", "br0"},
        ConfLine{"tx_can_carry=%s\n", "br0"},
    };
    int mode = FILE_CMD_TRUNCATE;
    for (const ConfLine &line : lines) {
        do_file_cmd(lldpd_conf, mode, line.format, line.value);
        mode = FILE_CMD_APPEND;
    }
}

}  // namespace

void nx_start_lldpd() {
    write_lldpd_conf();
    if (monitor_check_exist("lldpd") == 0) {
        start_process("lldpd", "lldpd -B -f -c /etc/lldpd.conf", __func__);
    } else {
        nx_restart_lldpd();
    }
}

void nx_restart_lldpd() {
    NX_TRACE("restart lldpd...\n");
    char project[32];
    if (read_project(project)) {
        doSystemCmd("sed -i '3c project_id=%s' %s", project, lldpd_conf);
    } else {
        printf("IN %s on %d cmd check error\n", __func__, __LINE__);
    }
    doSystemCmd("killall lldpd");
}

int nx_start_ssdpd() {
    return start_once("ssdpd", __func__);
}

int nx_start_ndtt() {
    return start_once("ntdd", __func__);
}

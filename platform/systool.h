/**
 * System tools of the device: restart, status, files, shell commands, process
 * monitor, notices to other daemons, system log.
 * All calls may be made from any thread.
 */
#ifndef PLATFORM_SYSTOOL_H
#define PLATFORM_SYSTOOL_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- device ------------------------------------------------------------ */

/** Actions of `systool_sys_handle`. */
enum { SYSTOOL_REBOOT = 0, SYSTOOL_RESTORE_FACTORY = 2 };

/** Orders a restart of the device, on the committed configuration or on factory
 *  defaults. Returns at once (0: taken); the device acts a moment later, so an
 *  answer that is under way still leaves. */
int systool_sys_handle(int action);

/** Restarts the device when its state calls for it, for instance after other
 *  processes were stopped; returns otherwise. */
void systool_reboot_if_necessary(void);

/** Seconds since boot; 32-bit, monotonic. */
long system_get_uptime(void);

/** Arranges for core dumps of the calling process. */
void system_init_core_dump(void);

/** System status sample. */
typedef struct sys_status {
    int32_t cpu;      /**< processor use, per cent */
    int32_t run_time; /**< seconds since boot */
    int32_t mem;      /**< memory use, per cent */
    int32_t reserved[8];
    int32_t rom;      /**< ROM use, per cent: the twelfth word */
    char version[64]; /**< software version, ended by a line end */
} sys_status;

static_assert(offsetof(sys_status, run_time) == 4, "sys_status layout");
static_assert(offsetof(sys_status, mem) == 8, "sys_status layout");
static_assert(offsetof(sys_status, rom) == 11 * 4, "sys_status layout");
static_assert(offsetof(sys_status, version) == 48, "sys_status layout");

/** Fills the sample. `targets` is the text of "sys.targets"; it only hints which
 *  targets are meant and any text is accepted. 0: done. */
int systool_sys_status_get(const char *targets, sys_status *status);

/** Free memory in bytes. */
unsigned long systool_get_free_memory_size(void);

/* ---- configuration file ------------------------------------------------ */

/** Operations of `systool_file_handle`. */
enum { SYSTOOL_FILE_EXPORT = 0, SYSTOOL_FILE_IMPORT = 2 };

/** Room for the path that an export writes, NUL included. */
#define SYSTOOL_FILE_NAME_MAX 24

/**
 * Export: writes the configuration to a file and its path (at most 23
 * characters) into `text`, which stays empty when there is none; `length` is 0.
 * Import: takes a configuration text of `length` bytes, two leading lines
 * (marker and "Default") included, into the pending set of the store.
 * @return 0: done. A refused import changes nothing.
 */
int systool_file_handle(int operation, char *text, int length);

/* ---- firmware writing -------------------------------------------------- */

/** Writes the image at `path` to flash and restarts the device; returns only
 *  when that failed. */
int systool_write_image_ap(const char *path, int type);

/** Stops every process but `spare` (mode 1). 0: done. */
int systool_kill_all_process(int mode, const char *spare);

/* ---- shell and files --------------------------------------------------- */

/** Longest command that `doSystemCmd` takes, NUL included; a longer one is not
 *  run. */
#define SYSTOOL_COMMAND_MAX 1280

/** Runs a shell command built from a printf format and waits for it. Returns
 *  the shell's wait status, -1 when it was not run. */
int doSystemCmd(const char *format, ...) __attribute__((format(printf, 1, 2)));

/** Modes of `do_file_cmd`. */
enum { FILE_CMD_TRUNCATE = 0, FILE_CMD_APPEND = 1 };

/** Writes one formatted text (`format` holds one %s, for `value`) to a file,
 *  creating it. 0: done. */
int do_file_cmd(const char *path, int mode, const char *format, const char *value);

/** Nonzero when the file exists. */
int file_check_exist_or_not(const char *path);

/** Longest value of `file_get_value_from_ini`, NUL included. */
#define FILE_INI_VALUE_MAX 128

/** Reads `key` of a "key=value" file into `value` (at least FILE_INI_VALUE_MAX
 *  bytes), cut to fit, without the line end. Nonzero: found; 0: not found or no
 *  such file, `value` untouched. */
int file_get_value_from_ini(const char *path, const char *key, char *value);

/** Nonzero when the text may stand as one word of a shell command: not empty, at
 *  most 255 characters, letters, digits and ". - _ : / @" only, no leading "-". */
int prod_system_param_valid(const char *text);

/** Drops, in place, the trailing zeros of a decimal fraction and then a bare
 *  trailing point: "20.00" becomes "20", "8.50" becomes "8.5". */
void removeLastZero(char *text);

/* ---- other daemons ----------------------------------------------------- */

/** Process monitor. Nonzero when a process of that name is supervised and
 *  running. */
int monitor_check_exist(const char *name);

/** Starts a supervised process from its command line. Below 0: failure. */
int monitor_mstart(const char *command_line);

/** Ends the supervision of a process, which goes on running. */
int monitor_stop(const char *name);

/** Notice to the network control daemon; `text` ("op=3") may be null. */
int send_msg_to_netctrl(int module, const char *text);

/** Request to the Wi-Fi service; message 1 restarts the radio of `band`
 *  (0: 2.4 GHz, 1: 5 GHz) on the committed settings. */
int send_wifi_msg_handle(int message, int band);

/* ---- logs -------------------------------------------------------------- */

/** System log record. */
typedef struct syslog_record {
    uint8_t header[16];
    char time[32];
    int32_t type;    /**< event type code */
    char event[256]; /**< NUL-terminated */
} syslog_record;

static_assert(offsetof(syslog_record, time) == 16, "syslog_record layout");
static_assert(offsetof(syslog_record, type) == 48, "syslog_record layout");
static_assert(offsetof(syslog_record, event) == 52, "syslog_record layout");
static_assert(sizeof(syslog_record) == 308, "syslog_record layout");

/** Reads the system log from its `first` record on, oldest first; of more than `max`
 *  records the newest. `count` receives their number. 0: done. */
int file_syslog_get_lists(syslog_record *records, int first, int *count, int max);

/** Levels of `log_debug_print`. */
enum { LOG_LEVEL_TRACE = 0, LOG_LEVEL_ERROR = 3 };

/** One line to the device's debug log. */
void log_debug_print(const char *function, int line, int level, int module, const char *format, ...)
    __attribute__((format(printf, 5, 6)));

#ifdef __cplusplus
}
#endif

#endif

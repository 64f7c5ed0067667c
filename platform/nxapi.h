/**
 * libnxapi: the cloud client library.
 *
 * The library keeps the connection to the cloud service. It hands commands to
 * the agent, on the agent's main thread only, through descriptors that it asks
 * the agent to watch, and takes uploads from any thread. A call fails by
 * returning exactly -1 unless its comment says otherwise.
 */
#ifndef PLATFORM_NXAPI_H
#define PLATFORM_NXAPI_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- descriptors ------------------------------------------------------- */

/** What the library wants to wait for on a descriptor. */
enum { NX_POLL_READ = 0, NX_POLL_WRITE = 1 };

/**
 * Called on the main thread when a watched descriptor is ready.
 * `item` is the handle that the stop hook takes; `mask` is the wanted `poll`
 * mask (POLLIN or POLLOUT), not what was returned. The result is ignored.
 * A callback may stop its own item.
 */
typedef int (*nx_poll_cb)(void *item, int fd, int mask);

/** The agent's start hook: 0, or -1 when the descriptor cannot be watched. */
typedef int (*nx_poll_start_fn)(int fd, int event, nx_poll_cb callback);

/** The agent's stop hook: takes the `item` of the callback, returns 0. */
typedef int (*nx_poll_stop_fn)(void *item);

/** Gives the library the two hooks. Both are called on the main thread only:
 *  from `nx_api_lib_init`, from the registrations, and from poll callbacks. */
void assign_poll_start(nx_poll_start_fn start);
void assign_poll_stop(nx_poll_stop_fn stop);

/** Initialises the library. Below 0: failure. Main thread, once, after both
 *  hooks are set. Does not wait for the cloud to be reachable. */
int nx_api_lib_init(void);

/** The library's own log level: 0 nothing, 7 everything. */
void set_debug_level(int level);

/* ---- command families -------------------------------------------------- */

/**
 * One command of a family.
 *
 * @param context   the library's own; the agent ignores it
 * @param in_len    length of `in`, without the terminating NUL
 * @param in        the request text, NUL-terminated; may be null or empty
 * @param out       where the response text goes: memory of cJSON's allocator,
 *                  the library's to free with `cJSON_free`; untouched on -1
 * @param out_len   where the length of the response goes; a command may count
 *                  the terminating NUL
 * @param private_data the slot's second pointer
 * @return 0 with a response, -1 without one
 */
typedef int (*nx_command_cb)(void *context, int in_len, const char *in, char **out, int *out_len,
                             void *private_data);

/** A command slot. A slot of two null pointers is a command not served. */
typedef struct nx_slot {
    nx_command_cb callback;
    void *private_data;
} nx_slot;

/** Number of slots of each family's table. */
enum { NX_CLOUD_SLOTS = 5, NX_DEV_SLOTS = 27, NX_NET_SLOTS = 19, NX_WLAN_SLOTS = 4 };

/** Registers a family's table, whose size is the family's constant above. The
 *  library copies the table during the call. Main thread. -1: failure. */
int nx_api_enable_m_cloud_fun(const nx_slot *slots);
int nx_api_enable_m_dev_fun(const nx_slot *slots);
int nx_api_enable_m_net_fun(const nx_slot *slots);
int nx_api_enable_m_wlan_fun(const nx_slot *slots);

/* ---- identity ---------------------------------------------------------- */

/** Called by the library, on the main thread, when the cloud assigns a serial
 *  number; `serial` is NUL-terminated. The first, second and last arguments
 *  are the library's own. The result is ignored. */
typedef int (*nx_serial_setter)(void *context, int length, const char *serial, void *private_data);

/** Who the device is. Texts are NUL-padded. On the device's 32-bit ABI the
 *  record is 612 bytes long. */
typedef struct nx_basic_info {
    int32_t manage_en;         /**< 0: cloud management is off */
    int32_t device_type;       /**< 2: access point */
    char serial[64];           /**< at most 32 characters */
    char mac[18];              /**< 12 upper-case hexadecimal digits, no separators */
    char firmware_version[64]; /**< for example "V1.0.0.11(10862)" */
    char hardware_version[64];
    char brand[128];
    char model[129];
    char credential[129];
    nx_serial_setter set_serial;
    uint32_t reserved;
} nx_basic_info;

static_assert(offsetof(nx_basic_info, device_type) == 4, "nx_basic_info layout");
static_assert(offsetof(nx_basic_info, serial) == 8, "nx_basic_info layout");
static_assert(offsetof(nx_basic_info, mac) == 72, "nx_basic_info layout");
static_assert(offsetof(nx_basic_info, firmware_version) == 90, "nx_basic_info layout");
static_assert(offsetof(nx_basic_info, hardware_version) == 154, "nx_basic_info layout");
static_assert(offsetof(nx_basic_info, brand) == 218, "nx_basic_info layout");
static_assert(offsetof(nx_basic_info, model) == 346, "nx_basic_info layout");
static_assert(offsetof(nx_basic_info, credential) == 475, "nx_basic_info layout");
static_assert(sizeof(void *) != 4 ||
                  (offsetof(nx_basic_info, set_serial) == 604 &&
                   offsetof(nx_basic_info, reserved) == 608 && sizeof(nx_basic_info) == 612),
              "nx_basic_info layout on the device");

/** Hands over the identity; the library copies the record. Main thread. */
int nx_api_set_basic_info(const nx_basic_info *info);

/* ---- uploads ----------------------------------------------------------- */

/* All uploads copy `length` bytes during the call, may be called from any
 * thread, do not wait for the network, and return -1 when the upload cannot be
 * taken (any other value: taken). Where a text is passed, `length` may or may
 * not count its terminating NUL; each comment says what the agent passes. */

/** Binding document (JSON); length without NUL. */
int nx_api_bind_info_upload(const char *text, int length);

/** Path of the file in which the library stores a firmware image; it stands at the
 *  start of a zero-filled buffer of `length` (256) bytes. */
int nx_api_dir_info_set(const char *path, int length);

/** Whole configuration: 32 bytes file name, NUL-padded, then the file's bytes. */
int nx_api_config_upload(const char *data, int length);

/** Configuration copy: 32 bytes serial of the copy, then the file's bytes. */
int nx_api_duplicate_config_upload(const char *data, int length);

/** Management mode or configuration request (JSON); length without NUL. */
int nx_api_manage_info_upload(const char *text, int length);

/** Alarm document (JSON); length without NUL. */
int nx_api_alarm_upload(const char *text, int length);

/** System log document (JSON); length without NUL. */
int nx_api_sys_log_upload(const char *text, int length);

/** One running log line (plain text); length without NUL. */
int nx_api_sys_log_upload_v1(const char *text, int length);

/** Diagnosis result list (JSON); length with NUL. */
int nx_api_net_check_back(const char *text, int length);

/** Radio optimisation result (JSON); length with NUL. */
int nx_api_radio_optimiza_back(const char *text, int length);

/** Outcome of a firmware download (JSON); length without NUL. */
int dev_upgrade_notice(const char *text, int length);

/** Tells the library that the boot time of the device is now known, so that
 *  the stamp of the local wireless settings can be brought up to date. */
void updaet_local_wireless_timestamp(void);

#ifdef __cplusplus
}
#endif

#endif

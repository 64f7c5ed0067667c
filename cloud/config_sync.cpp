#include <unistd.h>

#include <cstring>

#include "cloud/config_file.h"
#include "cloud/project.h"
#include "json.h"
#include "platform/systool.h"
#include "store.h"
#include "trace.h"

namespace {

constexpr const char *marker = "#The word of \"Default\" must not be removed";
constexpr int lan_address_tries = 10;
constexpr unsigned lan_address_pause_seconds = 1;

/** Checks a file and puts it into the pending set of the store; false when it is
 *  refused, with nothing imported. */
bool import_config(const char *in) {
    if (get_sky_mode() == sky_mode::local) {
        NX_TRACE_AS("config_sync", "norvex_manage mode is local manager!\n");
        return false;
    }
    if (in == nullptr || *in == '\0') {
        NX_TRACE_AS("config_sync", "norvex in_data is NULL!\n");
        return false;
    }
    if (strncmp(in, marker, strlen(marker)) != 0) {
        NX_TRACE_AS("config_sync", "the norvex download cfg is wrong!\n");
        return false;
    }
    if (strstr(in, store_get("ap.apname").text) == nullptr) {  // made for another model
        NX_TRACE_AS("config_sync", "product name error !\n");
        return false;
    }
    // The platform takes a pointer to variable text, but an import only reads it.
    if (systool_file_handle(SYSTOOL_FILE_IMPORT, const_cast<char *>(in),
                            static_cast<int>(strlen(in))) != 0) {
        NX_TRACE_AS("config_sync", "cfg file upgrade !\n");
        return false;
    }
    return true;
}

/** Waits until the LAN has an address, or 10 seconds. */
void wait_for_lan_address() {
    for (int i = 0; i < lan_address_tries && store_get("lan.ip").text[0] == '\0'; ++i) {
        sleep(lan_address_pause_seconds);
    }
}

}  // namespace

int config_sync(void *, int in_len, const char *in, char **out, int *out_len, void *) {
    const Json response = json_object();
    if (!response) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    NX_TRACE("\n data_len:%d\n, data: %s\n", in_len, in != nullptr ? in : "");
    const bool imported = import_config(in);
    JsonText text;
    if (json_add_number(response.get(), "resp_code", imported ? 0 : -1) != nullptr) {
        text = json_print(response);
    }
    if (!text) {
        return -1;
    }
    if (!imported) {
        NX_TRACE("########## *out = %s \n", text.get());
    }
    *out_len = static_cast<int>(strlen(text.get()) + 1);  // the library also gets the NUL
    *out = text.release();
    if (imported) {
        // The answer leaves after this call, and the restart comes later still.
        wait_for_lan_address();
        CommitCfm();
        systool_sys_handle(SYSTOOL_REBOOT);
    }
    return 0;
}

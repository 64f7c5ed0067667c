#include "wireless/request_config_upload.h"

#include "json.h"
#include "platform/nxapi.h"
#include "store.h"
#include "trace.h"

int request_config_upload() {
    char mode[8];  // seven characters count
    store_text("nx.manage.mode", mode);
    const Json record = json_object();
    const bool complete = json_add_string(record.get(), "mode", "wireless") != nullptr &&
                          json_add_number(record.get(), "manage", text_int(mode)) != nullptr;
    const JsonText text = complete ? json_print(record) : nullptr;
    if (!text ||
        nx_api_manage_info_upload(text.get(), static_cast<int>(strlen(text.get()))) == -1) {
        NX_TRACE("request_config_upload err!\n");
        return -1;
    }
    NX_TRACE(" request_config_upload succeed! out:%s\n", text.get());
    return 0;
}

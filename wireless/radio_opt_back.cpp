#include "wireless/radio_opt_back.h"

#include <unistd.h>

#include "json.h"
#include "nx_limits.h"
#include "platform/nxapi.h"
#include "thread.h"
#include "trace.h"

int radio_opt_result_back() {
    start_detached("radioopt", radio_opt_back);
    return 0;
}

void *radio_opt_back(void *) {
    sleep(limits::radio_opt_seconds);
    const Json record = json_object();
    if (!record || json_add_number(record.get(), "result", 0) == nullptr) {
        NX_TRACE("malloc is null!\n");
        return nullptr;
    }
    const JsonText text = json_print(record);
    if (!text) {
        return nullptr;
    }
    if (nx_api_radio_optimiza_back(text.get(), static_cast<int>(strlen(text.get())) + 1) == -1) {
        NX_TRACE("nx_api_radio_optimiza_back err!\n");
    } else {
        NX_TRACE("nx_api_radio_optimiza_back succeed! data:%s\n", text.get());
    }
    return nullptr;
}

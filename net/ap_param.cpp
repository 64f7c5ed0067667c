#include "net/ap_param.h"

#include <algorithm>
#include <cstring>

#include "store.h"
#include "trace.h"

namespace {

/** Hands the configured model's row, if there is one, to `use`. */
template <typename Use>
int with_model(Use use, const char *function = __builtin_FUNCTION()) {
    const StoreValue name = store_get("ap.apname");
    const size_t length = strlen(name.text);
    if (length == 0) {
        NX_TRACE_AS(function, "ap name is NULL.\n");
        return -1;
    }
    const auto *row = std::ranges::find_if(ap_param, [&](const ApModel &model) {
        return strncmp(model.name, name.text, length) == 0;
    });
    if (row != ap_param.end()) {
        use(*row);
    }
    return 0;
}

}  // namespace

int get_ap_sta_num_max(int *stations) {
    return with_model([&](const ApModel &model) { *stations = model.max_stations; });
}

int get_eth0_rate_max(int *rate) {
    return with_model([&](const ApModel &model) { *rate = model.wired_rate; });
}

int get_wireless_rate_max(int *rate_24, int *rate_5) {
    return with_model([&](const ApModel &model) {
        *rate_24 = model.rate_24;
        *rate_5 = model.rate_5;
    });
}

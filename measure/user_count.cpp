#include "measure/user_count.h"

#include <array>
#include <cstdint>

#include "band.h"
#include "platform/wifi.h"
#include "store.h"
#include "trace.h"

int user_num_get(int *count) {
    for (const Band &band : bands) {
        if (radio_enabled(band)) {
            std::array<uint8_t, WIFI_MAC_LIST_SIZE> list;
            int stations = 0;
            wifi_get_wl_mac_list(get_eth_name(band.eth_index), list.data(), &stations);
            *count += stations;
        }
    }
    NX_TRACE("client num = %d\n", *count);
    return 0;
}

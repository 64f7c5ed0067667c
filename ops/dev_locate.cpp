#include "json.h"
#include "notify.h"
#include "ops/nx_dev_api.h"
#include "platform/systool.h"
#include "store.h"

namespace {

constexpr const char *led_key = "sys.led.status";
constexpr const char *saved_led_key = "sys.led.status.orgin";
constexpr const char *located_key = "nx.located";

}  // namespace

/** Shows the device by its LED ("op" not 0) or gives the LED its former mode
 *  back. A second start saves the locate mode itself as the former one. */
int dev_locate(cJSON *request, cJSON *) {
    if (cJSON_GetObjectIntValue(request, "op", 0) != 0) {
        store_set(saved_led_key, store_get(led_key).text);
        store_set(located_key, "1");
        store_set(led_key, "1");
    } else {
        store_set(led_key, store_get(saved_led_key).text);
        store_set(located_key, "0");
    }
    CommitCfm();
    send_msg_to_netctrl(netctrl::led, nullptr);
    return 0;
}

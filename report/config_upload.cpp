#include "json.h"
#include "report/config_report.h"
#include "report/uploads.h"
#include "store.h"

int config_upload(cJSON *, cJSON *response) {
    cJSON *wireless = json_made(json_add_object(response, "wireless"));
    if (wireless == nullptr) {
        return -1;
    }
    wireless_data_get(wireless);
    cJSON *maint = json_made(json_add_object(response, "maint"));
    if (maint == nullptr) {
        return -1;
    }
    maint_data_get(maint);
    StoreValue serial;
    factory_text("ZQ_ATE_SN", serial.text, sizeof serial.text);
    json_add_string(response, "sn", serial.text);
    json_add_number(response, "work_mode", 2);
    json_add_number(response, "type", 1);
    return 0;
}

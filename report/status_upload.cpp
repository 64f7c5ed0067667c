#include <array>

#include "json.h"
#include "report/clients.h"
#include "report/dev_status.h"
#include "report/uploads.h"

namespace {

struct Section {
    JsonKey name;
    int (*fill)(cJSON *object);
};

constexpr std::array sections{
    Section{"dev_info", dev_info_get},
    Section{"run_status", run_status_get},
    Section{"ap_status", ap_status_get},
};

}  // namespace

int status_upload(cJSON *, cJSON *response) {
    for (const Section &section : sections) {
        cJSON *object = json_made(json_add_object(response, section.name));
        if (object == nullptr) {
            return -1;
        }
        section.fill(object);
    }
    cJSON *users = json_made(json_add_array(response, "user_list"));
    return users == nullptr ? -1 : user_list_get(users);
}

#include "nxapi/identity.h"

#include <cjson/cJSON.h>

#include <memory>

namespace nxapi {

std::string identity_text(const nx_basic_info &info, Credential credential) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> object(cJSON_CreateObject(),
                                                                 cJSON_Delete);
    bool whole = object != nullptr;
    const auto number = [&](const char *name, int32_t value) {
        whole = whole && cJSON_AddNumberToObject(object.get(), name, value) != nullptr;
    };
    const auto text = [&](const char *name, const std::string &value) {
        whole = whole && cJSON_AddStringToObject(object.get(), name, value.c_str()) != nullptr;
    };
    number("manage_en", info.manage_en);
    number("device_type", info.device_type);
    text("serial", field_text(info.serial));
    text("mac", field_text(info.mac));
    text("firmware_version", field_text(info.firmware_version));
    text("hardware_version", field_text(info.hardware_version));
    text("brand", field_text(info.brand));
    text("model", field_text(info.model));
    if (credential == Credential::included) {
        text("credential", field_text(info.credential));
    }
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(
        whole ? cJSON_PrintUnformatted(object.get()) : nullptr, cJSON_free);
    return printed == nullptr ? std::string() : std::string(printed.get());
}

}  // namespace nxapi

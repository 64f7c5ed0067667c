#include "json.h"

#include <bit>
#include <cstdint>

#include "trace.h"

namespace {

/** Hands `item` over when `added`; what could not be added is deleted here. */
cJSON *handed_over(Json &item, cJSON_bool added) {
    return added ? item.release() : nullptr;
}

cJSON *member_of(const cJSON *object, const char *key, cJSON_bool (*is_kind)(const cJSON *)) {
    cJSON *member = cJSON_GetObjectItem(object, key);
    return is_kind(member) ? member : nullptr;
}

}  // namespace

cJSON *json_add(cJSON *object, JsonKey key, Json item) {
    return handed_over(item, cJSON_AddItemToObjectCS(object, key, item.get()));
}

cJSON *json_add_named(cJSON *object, const char *name, Json item) {
    return handed_over(item, cJSON_AddItemToObject(object, name, item.get()));
}

cJSON *json_add_number(cJSON *object, JsonKey key, double number) {
    return json_add(object, key, Json(cJSON_CreateNumber(number)));
}

cJSON *json_add_string(cJSON *object, JsonKey key, const char *text) {
    return json_add(object, key, Json(cJSON_CreateString(text)));
}

cJSON *json_add_object(cJSON *object, JsonKey key) {
    return json_add(object, key, json_object());
}

cJSON *json_add_array(cJSON *object, JsonKey key) {
    return json_add(object, key, json_array());
}

cJSON *json_append(cJSON *array, Json item) {
    return handed_over(item, cJSON_AddItemToArray(array, item.get()));
}

cJSON *json_made(cJSON *item, const char *function, int line) {
    if (item == nullptr) {
        nx_trace(function, line, "malloc is null!\n");
    }
    return item;
}

cJSON *json_get_object(const cJSON *object, const char *key) {
    return member_of(object, key, cJSON_IsObject);
}

cJSON *json_get_array(const cJSON *object, const char *key) {
    return member_of(object, key, cJSON_IsArray);
}

int json_int(double number) {
    constexpr double int64_bound = 9223372036854775808.0;
    if (number > -int64_bound && number < int64_bound) {
        return static_cast<int32_t>(static_cast<uint32_t>(static_cast<int64_t>(number)));
    }
    // From 2^63 on a number is mantissa times a power of two: shift it, modulo 2^32.
    const auto bits = std::bit_cast<uint64_t>(number);
    const int exponent = static_cast<int>((bits >> 52) & 0x7ff) - 1075;
    if (exponent >= 32) {  // multiples of 2^32, infinities and NaN
        return 0;
    }
    const uint64_t mantissa = (bits & ((uint64_t{1} << 52) - 1)) | (uint64_t{1} << 52);
    const auto low = static_cast<uint32_t>(mantissa << exponent);
    return static_cast<int32_t>(number < 0 ? 0U - low : low);
}

int cJSON_GetObjectIntValue(const cJSON *object, const char *key, int fallback) {
    const cJSON *member = cJSON_GetObjectItem(object, key);
    return cJSON_IsNumber(member) ? json_int(member->valuedouble) : fallback;
}

const char *cJSON_GetObjectStringValue(const cJSON *object, const char *key, const char *fallback) {
    const cJSON *member = cJSON_GetObjectItem(object, key);
    return cJSON_IsString(member) && member->valuestring != nullptr ? member->valuestring
                                                                    : fallback;
}

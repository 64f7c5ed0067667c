/**
 * cJSON trees and printed texts with one owner, and typed look-ups.
 */
#ifndef JSON_H
#define JSON_H

#include <cjson/cJSON.h>

#include <cstring>
#include <memory>

#include "json_key.h"

struct JsonDelete {
    void operator()(cJSON *json) const { cJSON_Delete(json); }
};
struct JsonFree {
    void operator()(char *text) const { cJSON_free(text); }
};

/** A tree that is deleted with its owner. */
using Json = std::unique_ptr<cJSON, JsonDelete>;

/** A printed text of cJSON's allocator. */
using JsonText = std::unique_ptr<char, JsonFree>;

inline Json json_object() {
    return Json(cJSON_CreateObject());
}
inline Json json_array() {
    return Json(cJSON_CreateArray());
}
inline JsonText json_print(const Json &json) {
    return JsonText(cJSON_Print(json.get()));
}

/** Adds `item` under `key`; an item that could not be made or added is dropped.
 *  Returns what the object now holds there: a borrowed pointer, or null. */
cJSON *json_add(cJSON *object, JsonKey key, Json item);
cJSON *json_add_number(cJSON *object, JsonKey key, double number);
cJSON *json_add_string(cJSON *object, JsonKey key, const char *text);
cJSON *json_add_object(cJSON *object, JsonKey key);
cJSON *json_add_array(cJSON *object, JsonKey key);

/** The same under a name that is made at run time, and copied. */
cJSON *json_add_named(cJSON *object, const char *name, Json item);

/** Appends `item` to an array, with the same rules. */
cJSON *json_append(cJSON *array, Json item);

/** Passes on what one of the calls above gave, with a trace line of the caller's when
 *  that is null. */
cJSON *json_made(cJSON *item, const char *function = __builtin_FUNCTION(),
                 int line = __builtin_LINE());

/** Member `key` when it is an object, an array; null otherwise. */
cJSON *json_get_object(const cJSON *object, const char *key);
cJSON *json_get_array(const cJSON *object, const char *key);

/** A number as a signed 32-bit integer: the fraction is dropped, what lies
 *  outside the range wraps modulo 2^32 (3232235777, an IPv4 address, survives),
 *  and NaN and infinities give 0. */
int json_int(double number);

/** Member `key` as an integer (see `json_int`); `fallback` when it is absent or
 *  no number. The look-up ignores the case of the key. */
int cJSON_GetObjectIntValue(const cJSON *object, const char *key, int fallback);

/** Member `key` as a text that belongs to the object; `fallback`, which may be
 *  null, when it is absent or no string. */
const char *cJSON_GetObjectStringValue(const cJSON *object, const char *key, const char *fallback);

#endif

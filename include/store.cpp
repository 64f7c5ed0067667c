#include "store.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

StoreValue store_get(const char *key) {
    StoreValue value;
    value.found = GetValue(key, value.text) != 0;
    return value;
}

bool store_text(const char *key, char *field, size_t size) {
    const StoreValue value = store_get(key);
    text_copy(field, size, value.text);
    return value.found;
}

int store_int(const char *key) {
    return text_int(store_get(key).text);
}

void store_set(const char *key, const char *value) {
    SetValue(key, value);
}

void store_set_int(const char *key, int value) {
    char text[16];
    snprintf(text, sizeof text, "%d", value);
    SetValue(key, text);
}

void store_apply(std::span<const Setting> settings) {
    for (const Setting &setting : settings) {
        store_set(setting.key, setting.value);
    }
}

bool factory_text(const char *key, char *field, size_t size) {
    StoreValue value;
    value.found = ApmibGetValue(key, value.text) != 0;
    text_copy(field, size, value.text);
    return value.found;
}

int text_int(const char *text) {
    using Limits = std::numeric_limits<int32_t>;
    const long long number = strtoll(text, nullptr, 10);
    return static_cast<int>(std::clamp(number, static_cast<long long>(Limits::min()),
                                       static_cast<long long>(Limits::max())));
}

uint64_t text_uint64(const char *text) {
    return strtoull(text, nullptr, 10);
}

void text_copy(char *field, size_t size, const char *text) {
    const size_t length = std::min(strlen(text), size - 1);
    memmove(field, text, length);
    field[length] = '\0';
}

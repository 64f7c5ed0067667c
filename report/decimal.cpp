#include "report/decimal.h"

#include <cstdio>

#include "json.h"

void json_add_decimal(cJSON *object, const char *key, double number) {
    char text[64];  // a sum of 64-bit counters has 23 characters
    snprintf(text, sizeof text, "%.2f", number);
    json_add_string(object, key, text);
}

/**
 * Numbers that the cloud takes as texts.
 */
#ifndef REPORT_DECIMAL_H
#define REPORT_DECIMAL_H

#include <cjson/cJSON.h>

#include "json_key.h"

/** Adds a number as a text with two decimals, "10.00", as "%.2f" would write it: a
 *  float, or a count of 1024ths. */
void json_add_decimal(cJSON *object, JsonKey key, double number);

#endif

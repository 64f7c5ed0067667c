/**
 * Numbers that the cloud takes as texts.
 */
#ifndef REPORT_DECIMAL_H
#define REPORT_DECIMAL_H

#include <cjson/cJSON.h>

/** Adds a number as a text with two decimals, "10.00". */
void json_add_decimal(cJSON *object, const char *key, double number);

#endif

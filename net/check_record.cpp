#include "net/check_record.h"

#include "json.h"

bool check_record_append(cJSON *results, int type, int result) {
    Json record = json_object();
    return json_add_number(record.get(), "check_type", type) != nullptr &&
           json_add_number(record.get(), "result", result) != nullptr &&
           json_append(results, std::move(record)) != nullptr;
}

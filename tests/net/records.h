/**
 * Results of a diagnosis as texts.
 */
#ifndef TESTS_NET_RECORDS_H
#define TESTS_NET_RECORDS_H

#include "tests/support/support.h"

namespace test {

/** The records of a result list, each as "type:result". */
inline Lines records(const std::string &list) {
    Lines lines;
    for (const vap::Json &record : vap::Json::parse(list.c_str())) {
        EXPECT_EQ(record.begin().key(), "check_type");
        lines.push_back(record.front().dump() + ":" + record.at("result").dump());
    }
    return lines;
}

/** Runs a check; its result, then the records that it appended. */
inline Lines run(int (*check)(cJSON *)) {
    cJSON *list = cJSON_CreateArray();
    Lines lines{std::to_string(check(list))};
    char *text = cJSON_PrintUnformatted(list);
    std::ranges::copy(records(text), std::back_inserter(lines));
    cJSON_free(text);
    cJSON_Delete(list);
    return lines;
}

}  // namespace test

#endif

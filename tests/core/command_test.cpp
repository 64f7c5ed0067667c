#include "json.h"
#include "tests/support/support.h"

namespace {

using ::testing::EndsWith;

int calls = 0;
int verdict = 0;
int kind_seen = 0;

int probe(cJSON *request, cJSON *response) {
    ++calls;
    kind_seen = request->type & 0xff;
    json_add_string(response, "echo", cJSON_GetObjectStringValue(request, "text", "none"));
    return verdict;
}

struct Outcome {
    int result;
    std::string text;
    int length;
};

Outcome wrapped(const char *request, nx_handler handler = probe) {
    char *text = nullptr;
    int length = -1;
    const int result =
        command_cb_wrapper(nullptr, 0, request, &text, &length, reinterpret_cast<void *>(handler));
    Outcome outcome{result, text != nullptr ? text : "", length};
    cJSON_free(text);
    return outcome;
}

class Wrapper : public ::testing::Test {
  protected:
    Wrapper() { calls = verdict = kind_seen = 0; }
};

std::string nested(int depth) {
    return std::string(static_cast<size_t>(depth), '[') +
           std::string(static_cast<size_t>(depth), ']');
}

TEST_F(Wrapper, TakesWhatParsesAndRefusesTheRest) {
    const std::string huge = R"({"text":")" + std::string(3'000'000, 'x') + "\"}";
    const std::string deep = nested(900);
    const std::string too_deep = nested(100'000);
    struct Row {
        const char *request;
        bool taken;
        int kind;
    } const rows[] = {
        {nullptr, true, cJSON_Object},                        // no request is an empty one
        {"", true, cJSON_Object},           {" ", false, 0},  // blanks are no JSON
        {"[1,2]", true, cJSON_Array},                         // some commands take an array
        {"null", true, cJSON_NULL},         {"{\"text\":", false, 0},
        {huge.c_str(), true, cJSON_Object}, {deep.c_str(), true, cJSON_Array},
        {too_deep.c_str(), false, 0},  // refused by the parser's own limit
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.request != nullptr ? row.request : "(null)").substr(0, 40));
        calls = 0;
        const Outcome outcome = wrapped(row.request);
        EXPECT_EQ(outcome.result, row.taken ? 0 : -1);
        EXPECT_EQ(calls, row.taken ? 1 : 0);
        if (row.taken) {
            EXPECT_EQ(kind_seen, row.kind);
            EXPECT_EQ(outcome.length, static_cast<int>(outcome.text.size()));
            EXPECT_THAT(outcome.text, EndsWith("\"resp_code\":\t0\n}"));
        } else {
            EXPECT_EQ(outcome.length, -1) << "the caller's length must stay as it was";
        }
    }
    EXPECT_EQ(wrapped("{}", nullptr).result, -1);
}

int own_verdict(cJSON *, cJSON *response) {
    json_add_number(response, "resp_code", 5);
    return 1;
}

TEST_F(Wrapper, PutsAnyVerdictBehindWhatTheHandlerWrote) {
    for (const int value : {0, -3, 2147483647, -2147483647 - 1}) {
        verdict = value;
        const Outcome outcome = wrapped("{\"text\":\"hello\"}");
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.text,
                  "{\n\t\"echo\":\t\"hello\",\n\t\"resp_code\":\t" + std::to_string(value) + "\n}");
    }
    EXPECT_EQ(wrapped("", own_verdict).text, "{\n\t\"resp_code\":\t5,\n\t\"resp_code\":\t1\n}");
}

TEST(JsonInt, IsDefinedForEveryDouble) {
    struct Row {
        double number;
        int expected;
    } const rows[] = {
        {-7.9, -7},
        {3232235777.0, -1062731519},  // 192.168.1.1 keeps its bits
        {-4294967297.0, -1},
        {36893488147419111424.0, 8192},  // 2^65 + 2^13: the last bits still count
        {-36893488147419111424.0, -8192},
        {1e300, 0},
        {HUGE_VAL, 0},
        {NAN, 0},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(json_int(row.number), row.expected) << row.number;
    }
}

TEST(LookUp, CountsTheWrongTypeAsAbsent) {
    const Json object(
        cJSON_Parse(R"({"text":"7","number":7.9,"empty":"","nothing":null,"List":[]})"));
    EXPECT_EQ(cJSON_GetObjectIntValue(object.get(), "text", 3), 3);
    EXPECT_EQ(cJSON_GetObjectIntValue(object.get(), "NUMBER", 3), 7) << "keys ignore case";
    EXPECT_EQ(cJSON_GetObjectIntValue(object.get(), "nothing", 3), 3);
    EXPECT_EQ(cJSON_GetObjectIntValue(nullptr, "number", 3), 3);
    EXPECT_STREQ(cJSON_GetObjectStringValue(object.get(), "number", "x"), "x");
    EXPECT_STREQ(cJSON_GetObjectStringValue(object.get(), "empty", "x"), "");
    EXPECT_EQ(cJSON_GetObjectStringValue(object.get(), "absent", nullptr), nullptr);
    EXPECT_NE(json_get_array(object.get(), "list"), nullptr);
    EXPECT_EQ(json_get_object(object.get(), "list"), nullptr);
}

}  // namespace

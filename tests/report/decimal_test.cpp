#include "report/decimal.h"

#include "tests/support/support.h"

namespace {

std::string text_of(double number) {
    cJSON *object = cJSON_CreateObject();
    json_add_decimal(object, "n", number);
    const std::string text = object->child->valuestring;
    cJSON_Delete(object);
    return text;
}

std::string printed(double number) {
    char text[64];
    snprintf(text, sizeof text, "%.2f", number);
    return text;
}

TEST(Decimal, WritesWhatPrintfWrites) {
    for (const double number : std::initializer_list<double>{
             0.0, -0.0, 0.125, 0.375, 2.625, 99.995F, 0.005F, 1e-9F, -1.5, -0.001, 1e15, 2.1e17,
             4194304.0, std::numeric_limits<double>::infinity(),
             std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(text_of(number), printed(number));
    }
    uint32_t random = 1;
    for (int i = 0; i < 20000; ++i) {
        random = random * 1664525 + 1013904223;
        const double kibibytes = (random >> i % 32) / 1024.0;
        const float rate = static_cast<float>(random) / static_cast<float>(1 + i % 1000) / 128.0F;
        ASSERT_EQ(text_of(kibibytes), printed(kibibytes));
        ASSERT_EQ(text_of(rate), printed(rate));
    }
}

}  // namespace

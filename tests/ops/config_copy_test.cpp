#include "cloud/config_file.h"
#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::EndsWith;
using ::testing::IsEmpty;

class ConfigCopy : public test::Device {
  protected:
    std::string copy(const std::string &request) {
        EXPECT_EQ(answer(dev_config_copy_upload, request).at("resp_code"), 0) << request;
        return uploads("nx_api_duplicate_config_upload").back().data;
    }
};

TEST_F(ConfigCopy, HeadsTheFileWithTheSerialOfTheCopy) {
    set("some.key", "some value");
    struct Row {
        std::string request;
        std::string serial;
    } const rows[] = {
        {R"({"copy_sn":"NXT0000000002"})", "NXT0000000002"},
        {R"({"copy_sn":")" + std::string(31, 's') + "\"}", std::string(31, 's')},
        {R"({"copy_sn":")" + std::string(32, 's') + "\"}", std::string(32, 's')},
        {R"({"copy_sn":")" + std::string(40, 's') + "\"}", std::string(32, 's')},  // no terminator
        {R"({"copy_sn":7})", ""},
        {"{}", ""},
    };
    ASSERT_EQ(norvex_config_upload(), 0);
    const std::string body = uploads("nx_api_config_upload")[0].data.substr(config_head_size);
    EXPECT_THAT(body, EndsWith("\n"));
    for (const Row &row : rows) {
        std::string expected = row.serial;
        expected.resize(config_head_size, '\0');
        EXPECT_EQ(copy(row.request), expected + body) << row.request;
    }
}

TEST_F(ConfigCopy, AnswersARefusal) {
    refuse("nx_api_duplicate_config_upload");
    EXPECT_EQ(answer(dev_config_copy_upload).at("resp_code"), -1);
}

TEST_F(ConfigCopy, HasNoErrorCodeForAMissingExport) {
    vap::fail("systool_file_handle", 1, 2);
    EXPECT_EQ(answer(dev_config_copy_upload).at("resp_code"), 0);
    vap::Json traced;
    output_of([&] { traced = answer(dev_config_copy_upload); });
    EXPECT_GT(traced.at("resp_code"), 0) << "the length of the trace line";
    EXPECT_THAT(uploads("nx_api_duplicate_config_upload"), IsEmpty());
}

}  // namespace

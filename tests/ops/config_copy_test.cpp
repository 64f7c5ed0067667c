#include "cloud/config_file.h"
#include "ops/nx_dev_api.h"
#include "tests/support/support.h"

namespace {

using ::testing::IsEmpty;

class ConfigCopy : public test::Device {};

TEST_F(ConfigCopy, HeadsTheFileWithTheSerialOfTheCopy) {
    set("some.key", "some value");
    ASSERT_EQ(norvex_config_upload(), 0);
    const std::string body = uploads("nx_api_config_upload")[0].data.substr(config_head_size);
    for (const std::string &serial :
         {std::string(), std::string("NXT0000000002"), std::string(40, 's')}) {
        EXPECT_EQ(verdict(dev_config_copy_upload,
                          serial.empty() ? "{}" : R"({"copy_sn":")" + serial + "\"}"),
                  0);
        std::string head = serial;
        head.resize(config_head_size, '\0');  // the longest one has no terminator
        EXPECT_EQ(uploads("nx_api_duplicate_config_upload").back().data, head + body);
    }
    refuse("nx_api_duplicate_config_upload");
    EXPECT_EQ(verdict(dev_config_copy_upload), -1);
}

TEST_F(ConfigCopy, HasNoErrorCodeForAMissingExport) {
    vap::fail("systool_file_handle", 1, 2);
    EXPECT_EQ(verdict(dev_config_copy_upload), 0);
    output_of(
        [&] { EXPECT_GT(verdict(dev_config_copy_upload), 0) << "the length of the trace line"; });
    EXPECT_THAT(uploads("nx_api_duplicate_config_upload"), IsEmpty());
}

}  // namespace

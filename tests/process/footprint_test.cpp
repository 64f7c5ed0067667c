/**
 * What the agent's program needs on a device.
 */
#include <cstdio>
#include <string>
#include <vector>

#include "paths.h"
#include "tests/support/support.h"

namespace {

/** Names of the libraries that a program asks the loader for. */
std::vector<std::string> needed_libraries(const std::string &program) {
    std::vector<std::string> names;
    FILE *lines = popen(("readelf -d " + program).c_str(), "re");
    char line[512];
    while (lines != nullptr && fgets(line, sizeof line, lines) != nullptr) {
        const std::string text = line;
        const size_t open = text.find('[');
        if (text.find("(NEEDED)") != text.npos && open != text.npos) {
            names.push_back(text.substr(open + 1, text.find(']') - open - 1));
        }
    }
    if (lines != nullptr) {
        pclose(lines);
    }
    return names;
}

TEST(Footprint, NeedsNoRuntimeOfCpp) {
#ifdef NORVEX_SANITIZED
    GTEST_SKIP() << "a sanitizer brings the runtime along";
#endif
    const auto names = needed_libraries(NORVEX_BIN_DIR "/norvex");
    EXPECT_THAT(names, ::testing::IsSupersetOf({"libvap.so", "libnxapi.so", "libcjson.so.1"}));
    EXPECT_EQ(names.size(), 4U) << "besides these only the C library: "
                                << ::testing::PrintToString(names);
    EXPECT_THAT(names, ::testing::Contains(::testing::StartsWith("libc.so")));
}

}  // namespace

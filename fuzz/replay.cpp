/**
 * Runs a target over files and folders of files instead of a fuzzer's inputs:
 * the kept corpus and the cases that once failed.
 */
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/support.h"

namespace {

int replayed = 0;

void replay(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fprintf(stderr, "cannot read %s\n", path.c_str());
        exit(1);
    }
    const std::vector<char> input{std::istreambuf_iterator<char>(in), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.data()), input.size());
    ++replayed;
}

}  // namespace

int main(int argc, char **argv) {
    if (freopen("/dev/null", "w", stdout) == nullptr) {  // the agent traces all it does
        return 1;
    }
    for (int i = 1; i < argc; ++i) {
        if (std::filesystem::is_directory(argv[i])) {
            for (const auto &entry : std::filesystem::recursive_directory_iterator(argv[i])) {
                if (entry.is_regular_file()) {
                    replay(entry.path());
                }
            }
        } else {
            replay(argv[i]);
        }
    }
    fprintf(stderr, "%d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}

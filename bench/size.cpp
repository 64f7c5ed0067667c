/* What the agent takes of a device's flash, and the libraries it needs. */
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "bench/support/table.h"
#include "paths.h"
#include "tests/support/temp_folder.h"

namespace {

std::string output_of(const std::string &command) {
    std::string text;
    FILE *output = popen(command.c_str(), "re");
    char part[512];
    while (output != nullptr && fgets(part, sizeof part, output) != nullptr) {
        text += part;
    }
    if (output == nullptr || pclose(output) != 0) {
        throw std::runtime_error(command + " fails");
    }
    return text;
}

void report(const std::string &machine, const std::string &tools, const std::string &agent,
            bench::Goal goal, bench::Table &table) {
    const test::TempFolder folder;
    const std::string stripped = folder.path() / "norvex";
    output_of(tools + "strip -o " + stripped + " " + agent);
    // Berkeley style: text, data, bss, ... in the second line.
    double text = 0;
    double data = 0;
    const std::string sizes = output_of(tools + "size " + stripped);
    if (sscanf(sizes.c_str() + sizes.find('\n'), "%lf %lf", &text, &data) != 2) {
        throw std::runtime_error("no sizes in: " + sizes);
    }
    table.add({.what = "size for " + machine + ", text and data",
               .unit = bench::Unit::bytes,
               .norvex = text + data,
               .goal = goal});
    table.add({.what = "size for " + machine + ", the stripped file",
               .unit = bench::Unit::bytes,
               .norvex = static_cast<double>(std::filesystem::file_size(stripped))});
    const std::string needed =
        output_of(tools + "readelf -d " + stripped +
                  " | sed -n 's/.*(NEEDED).*\\[\\(.*\\)\\]/\\1/p' | tr '\\n' ' '");
    table.note("needs " + needed);
    table.add({.what = "  C++ runtimes among them",
               .unit = bench::Unit::count,
               .norvex = needed.find("++") == needed.npos ? 0.0 : 1.0,
               .goal = bench::at_most(0)});
}

}  // namespace

int main() {
    bench::Table table;
    report("this machine", "", NORVEX_BIN_DIR "/norvex", {}, table);
    const std::string mipsel = NORVEX_BIN_DIR "/../../mipsel/bin/norvex";
    if (std::filesystem::exists(mipsel)) {
        report("MIPS", "mipsel-linux-gnu-", mipsel, bench::at_most(120 * 1024), table);
    } else {
        table.note("no build for MIPS: script/cross makes one");
    }
    return table.status();
}

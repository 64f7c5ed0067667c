/**
 * The open libraries export the contract, the calls that they take from libc, and
 * nothing else outside their own namespaces.
 */
#include <dlfcn.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>

#include "paths.h"
#include "platform/nxapi.h"
#include "tests/support/support.h"

namespace {

std::string text_of(const std::filesystem::path &path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

/** Names of the functions that a header declares. */
std::set<std::string> declared(const std::filesystem::path &header) {
    std::string text = text_of(header);
    for (const char *noise :
         {R"(/\*[^*]*\*+(?:[^/*][^*]*\*+)*/)", R"(//[^\n]*)", R"(\n#[^\n]*)", R"(extern "C" \{)",
          R"(static_assert\([^;]*;)", R"(__attribute__\(\([^;]*\)\))",
          R"(typedef[^;{(]*\(\*[^;]*;)", R"(\{[^{}]*\})"}) {
        // Members of records go with their braces; the outermost are extern "C"'s.
        text = std::regex_replace(text, std::regex(noise), "");
    }
    std::set<std::string> names;
    const std::regex function(R"((\w+)\s*\((?:[^()]|\([^()]*\)|\((?:[^()]|\([^()]*\))*\))*\)\s*;)");
    for (std::sregex_iterator at(text.begin(), text.end(), function), end; at != end; ++at) {
        names.insert((*at)[1]);
    }
    return names;
}

/** Symbols of the library that holds a function, outside `space`. */
std::set<std::string> exported(const void *function, const std::string &space) {
    Dl_info library{};
    EXPECT_NE(dladdr(function, &library), 0);
    const std::string command =
        "nm -D --defined-only --extern-only " + std::string(library.dli_fname);
    FILE *const pipe = popen(command.c_str(), "re");
    std::set<std::string> names;
    char type = 0;
    char name[1024];
    const std::regex own("_Z(TI|TS|TV|GV|Z)?NK?" + std::to_string(space.size()) + space + ".*");
    while (fscanf(pipe, "%*s %c %1023s", &type, name) == 2) {
        if (!std::regex_match(name, own)) {
            names.insert(name);
        }
    }
    pclose(pipe);
    return names;
}

std::vector<std::string> without(const std::set<std::string> &names,
                                 const std::set<std::string> &others) {
    std::vector<std::string> left;
    std::ranges::set_difference(names, others, std::back_inserter(left));
    return left;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const std::set<std::string> from_libc;  // part of the program in such a build
#else
const std::set<std::string> from_libc{
    "accept", "accept4", "bind",   "connect", "fopen",          "fopen64", "kill",
    "listen", "open",    "open64", "popen",   "pthread_create", "sendto",  "settimeofday",
    "sleep",  "socket",  "time",   "unlink",  "usleep"};
#endif

TEST(Symbols, LibrariesExportTheContractAndNoMore) {
    const std::filesystem::path contract = std::filesystem::path(NORVEX_SOURCE_DIR) / "platform";
    std::set<std::string> device = from_libc;
    for (const auto &entry : std::filesystem::directory_iterator(contract)) {
        if (entry.path().filename() != "nxapi.h") {
            device.merge(declared(entry.path()));
        }
    }
    ASSERT_TRUE(device.contains("GetValue") && device.contains("log_debug_print") &&
                device.contains("wifi_get_wl_mac_list") && device.contains("db_table_init"));
    const auto open_device = exported(reinterpret_cast<void *>(&vap::close_device), "vap");
    EXPECT_THAT(without(device, open_device), testing::IsEmpty()) << "not exported";
    EXPECT_THAT(without(open_device, device), testing::IsEmpty()) << "not in the contract";
    const auto cloud = exported(reinterpret_cast<void *>(nx_api_lib_init), "nxapi");
    EXPECT_EQ(cloud, declared(contract / "nxapi.h"));
}

}  // namespace

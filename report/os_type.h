/**
 * Operating systems of stations.
 */
#ifndef REPORT_OS_TYPE_H
#define REPORT_OS_TYPE_H

#include <array>
#include <string_view>

/** Names behind the numbers of `ap_client_identify_get_os_info`. */
inline constexpr std::array<std::string_view, 14> os_type_str{
    "--",     "Android", "IOS",  "IOS",  "Windows Phone", "unknown", "PC",
    "Router", "Win XP",  "Win7", "Win8", "Win Vista",     "Mac OS",  "Windows"};

/** How the cloud classes a name. */
constexpr int os_class(std::string_view name) {
    struct Row {
        std::string_view name;
        int number;
    };
    constexpr std::array rows{Row{"IOS", 0},    Row{"Android", 1},   Row{"Windows", 2},
                              Row{"Win XP", 2}, Row{"Win7", 2},      Row{"Win8", 2},
                              Row{"Win10", 2},  Row{"Win Vista", 2}, Row{"Mac OS", 3}};
    for (const Row &row : rows) {
        if (row.name == name) {
            return row.number;
        }
    }
    return 4;
}

/** The classes of all names. */
inline constexpr auto os_classes = [] {
    std::array<int, os_type_str.size()> classes{};
    for (size_t i = 0; i < classes.size(); ++i) {
        classes[i] = os_class(os_type_str[i]);
    }
    return classes;
}();

#endif

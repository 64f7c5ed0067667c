/**
 * System tools that read and write texts and files of the device, and run shell
 * commands. Every path that they take is a path of the device.
 */
#include <fcntl.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>

#include "platform/systool.h"
#include "virtual/device/effect.h"
#include "virtual/device/machine.h"

using vap::Json;
using vap::text_arg;

namespace {

constexpr const char *export_path = "/tmp/config.export";
static_assert(sizeof "/tmp/config.export" <= SYSTOOL_FILE_NAME_MAX);

/** The two lines in front of a configuration text that comes from outside. */
constexpr std::string_view import_head = "#The word of \"Default\" must not be removed\nDefault\n";

int export_configuration(vap::Machine &device, char *text) {
    const std::optional<vap::Values> values = device.config.committed();
    const std::filesystem::path file = vap::host_path(export_path);
    if (!values || !vap::make_folders(file.parent_path()) ||
        !vap::replace_file(file, vap::print_values(*values))) {
        return -1;
    }
    strcpy(text, export_path);
    return 0;
}

int import_configuration(vap::Machine &device, std::string_view text) {
    if (!text.starts_with(import_head)) {
        return -1;
    }
    const std::optional<vap::Values> values = vap::parse_values(text.substr(import_head.size()));
    if (!values) {
        return -1;
    }
    for (const auto &[key, value] : *values) {
        device.config.set(key, value);  // parsing has checked both
    }
    return 0;
}

/** The text of a format that holds exactly one "%s" ("%%" stands for "%");
 *  nothing for any other format. */
std::optional<std::string> format_one(std::string_view format, const char *value) {
    std::string text;
    int values = 0;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            text += format[i];
        } else if (++i < format.size() && format[i] == '%') {
            text += '%';
        } else if (i < format.size() && format[i] == 's' && ++values == 1) {
            text += value;
        } else {
            return std::nullopt;
        }
    }
    return values == 1 ? std::optional(text) : std::nullopt;
}

int write_text(const std::string &path, int mode, const std::string &text) {
    const std::filesystem::path file = vap::host_path(path);
    vap::make_folders(file.parent_path());
    const int how = mode == FILE_CMD_APPEND ? O_APPEND : O_TRUNC;
    const vap::Descriptor out(
        open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | how, vap::private_file));
    return out.get() >= 0 && vap::write_all(out.get(), text) ? 0 : -1;
}

bool plain_character(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           strchr(".-_:/@", c) != nullptr;
}

}  // namespace

extern "C" {

int systool_file_handle(int operation, char *text, int length) {
    const bool import = operation == SYSTOOL_FILE_IMPORT;
    if (operation == SYSTOOL_FILE_EXPORT && text != nullptr) {
        *text = '\0';
    }
    const vap::Inside inside;
    const std::shared_ptr<vap::Machine> device = vap::machine();
    const std::optional<long> fault = vap::due_fault("systool_file_handle", -1);
    int result = -1;
    if (fault) {
        result = static_cast<int>(*fault);
    } else if (device && text != nullptr && operation == SYSTOOL_FILE_EXPORT) {
        result = export_configuration(*device, text);
    } else if (device && text != nullptr && import && length >= 0) {
        result = import_configuration(*device, {text, static_cast<size_t>(length)});
    }
    vap::record("systool_file_handle", Json::array({operation, text_arg(text), length}), result);
    return result;
}

int doSystemCmd(const char *format, ...) {
    char command[SYSTOOL_COMMAND_MAX];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(command, sizeof command, format, args);
    va_end(args);
    return vap::effect("doSystemCmd", Json::array({text_arg(command)}), -1, [&] {
        if (length < 0 || length >= SYSTOOL_COMMAND_MAX) {
            return -1;
        }
        const std::optional<std::string> text = vap::shell_command(command);
        return text ? system(text->c_str()) : 0;
    });
}

int do_file_cmd(const char *path, int mode, const char *format, const char *value) {
    Json args = Json::array({text_arg(path), mode, text_arg(format), text_arg(value)});
    return vap::effect("do_file_cmd", std::move(args), -1, [&] {
        if (!vap::machine() || path == nullptr || format == nullptr || value == nullptr) {
            return -1;
        }
        const std::optional<std::string> text = format_one(format, value);
        return text ? write_text(path, mode, *text) : -1;
    });
}

int file_check_exist_or_not(const char *path) {
    const vap::Inside inside;
    if (const std::optional<long> fault = vap::due_fault("file_check_exist_or_not", 0)) {
        return static_cast<int>(*fault);
    }
    std::error_code error;
    return vap::machine() && path != nullptr &&
           std::filesystem::exists(vap::host_path(path), error);
}

int file_get_value_from_ini(const char *path, const char *key, char *value) {
    const vap::Inside inside;
    if (const std::optional<long> fault = vap::due_fault("file_get_value_from_ini", 0)) {
        return static_cast<int>(*fault);
    }
    if (!vap::machine() || path == nullptr || key == nullptr) {
        return 0;
    }
    std::istringstream in(vap::read_file(vap::host_path(path)).value_or(""));
    const std::string start = std::string(key) + "=";
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(start)) {
            line.erase(std::find(line.begin(), line.end(), '\r'), line.end());
            snprintf(value, FILE_INI_VALUE_MAX, "%s", line.c_str() + start.size());
            return 1;
        }
    }
    return 0;
}

int prod_system_param_valid(const char *text) {
    if (text == nullptr || *text == '-') {
        return 0;
    }
    const std::string_view word(text);
    return !word.empty() && word.size() <= 255 && std::ranges::all_of(word, plain_character);
}

void removeLastZero(char *text) {
    if (text == nullptr || strchr(text, '.') == nullptr) {
        return;
    }
    char *end = text + strlen(text);
    while (end[-1] == '0') {
        --end;
    }
    if (end[-1] == '.') {
        --end;
    }
    *end = '\0';
}

}  // extern "C"

#include "cloud/config_file.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "file.h"
#include "heap.h"
#include "json.h"
#include "platform/nxapi.h"
#include "store.h"
#include "trace.h"

namespace {

// Exports come without these two lines, imports need them.
constexpr char leading_lines[] = "#The word of \"Default\" must not be removed\nDefault\n";
constexpr size_t leading_size = sizeof leading_lines - 1;

/** Takes the bytes of a file one piece after another: counts them while it has
 *  no buffer, and copies them as far as the buffer reaches. */
class Body {
  public:
    Body() = default;
    Body(char *buffer, size_t size) : buffer_(buffer), room_(size) {}

    void add(const char *piece, size_t length) {
        length = std::min(length, room_ - size_);
        if (buffer_ != nullptr) {
            memcpy(buffer_ + size_, piece, length);
        }
        size_ += length;
    }
    size_t size() const { return size_; }

  private:
    char *buffer_ = nullptr;
    size_t room_ = SIZE_MAX;
    size_t size_ = 0;
};

void read_export(const ConfigExport &config, Body &body) {
    const File file(fopen(config.path, "re"));
    if (!file) {
        return;
    }
    body.add(leading_lines, leading_size);
    char line[limits::line];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        body.add(line, strlen(line));
    }
}

}  // namespace

ConfigExport export_config() {
    ConfigExport config{};
    systool_file_handle(SYSTOOL_FILE_EXPORT, config.path, 0);
    return config;
}

size_t config_body_size(const ConfigExport &file) {
    Body body;
    read_export(file, body);
    return body.size();
}

int upload_config(const ConfigExport &file, size_t body_size, const char *head,
                  int (*upload)(const char *data, int length), const char *function) {
    const Heap<char> record(static_cast<char *>(calloc(config_head_size + body_size, 1)));
    if (!record) {
        NX_TRACE_AS(function, "malloc err!\n");
        return -1;
    }
    memcpy(record.get(), head, strnlen(head, config_head_size));
    Body body(record.get() + config_head_size, body_size);
    read_export(file, body);
    const auto length = static_cast<int>(config_head_size + body.size());
    if (upload(record.get(), length) == -1) {
        NX_TRACE_AS(function, "ap_config upload norvex err!\n");
        return -1;
    }
    NX_TRACE_AS(function, "ap_config upload norvex succeed! apconfig_len = %d\n", length);
    return 0;
}

int norvex_config_upload() {
    const ConfigExport file = export_config();
    if (file.path[0] == '\0') {
        return NX_TRACE("filename is NULL!\n");
    }
    NX_TRACE("filename=%s\n", file.path);
    const size_t body_size = config_body_size(file);
    NX_TRACE("Config Length = [%d]\n\n", static_cast<int>(body_size));
    return upload_config(file, body_size, "APCfm.cfg", nx_api_config_upload);
}

int norvex_mode_change_upload() {
    const Json document = json_object();
    if (!document) {
        NX_TRACE("malloc is null!\n");
        return -1;
    }
    JsonText text;
    if (json_add_number(document.get(), "manage", 2) != nullptr) {
        text = json_print(document);
    }
    if (!text ||
        nx_api_manage_info_upload(text.get(), static_cast<int>(strlen(text.get()))) == -1) {
        NX_TRACE("nx_api_bind_info_upload err!\n");
        return -1;
    }
    NX_TRACE("norvex_mode_change_upload succeed! out:%s\n", text.get());
    return 0;
}

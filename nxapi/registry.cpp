#include "nxapi/registry.h"

#include <cjson/cJSON.h>

#include <utility>

namespace nxapi {

Registry &registry() {
    static Registry the_registry;
    return the_registry;
}

std::optional<size_t> family_index(std::string_view name) {
    for (size_t i = 0; i < families.size(); ++i) {
        if (families[i].name == name) {
            return i;
        }
    }
    return std::nullopt;
}

Reply::Reply(Reply &&other) noexcept
    : result(other.result), text(std::exchange(other.text, nullptr)), length(other.length) {}

Reply::~Reply() {
    cJSON_free(text);
}

Reply run_command(const Registry &registry, size_t family, size_t slot, const char *request,
                  int request_length) {
    Reply reply;
    if (family >= families.size() || slot >= families[family].slots) {
        return reply;
    }
    const nx_slot entry = registry.tables[family][slot];
    if (entry.callback == nullptr) {
        return reply;
    }
    reply.result = entry.callback(nullptr, request_length, request, &reply.text, &reply.length,
                                  entry.private_data);
    if (reply.result == -1 || reply.text == nullptr || reply.length < 0) {
        cJSON_free(std::exchange(reply.text, nullptr));
        reply.length = 0;
    }
    return reply;
}

int run_serial_setter(const Registry &registry, const char *serial, int length) {
    return registry.set_serial == nullptr ? -1
                                          : registry.set_serial(nullptr, length, serial, nullptr);
}

}  // namespace nxapi

#include "nxapi/local.h"

#include <memory>
#include <mutex>
#include <utility>

#include "nxapi/registry.h"
#include "nxapi/transport.h"

namespace nxapi {
namespace {

std::mutex sink_lock;
std::shared_ptr<const UploadSink> current_sink;

std::shared_ptr<const UploadSink> sink() {
    const std::lock_guard guard(sink_lock);
    return current_sink;
}

void replace_sink(std::shared_ptr<const UploadSink> sink) {
    const std::lock_guard guard(sink_lock);
    current_sink = std::move(sink);
}

}  // namespace

bool is_local() {
    return sink() != nullptr;
}

std::optional<int> local_call(const char *call, std::string_view data) {
    // The sink runs outside the lock: it may block, or call the library again.
    const auto to = sink();
    if (to == nullptr) {
        return std::nullopt;
    }
    return (*to)(Upload{call, std::string(data), static_cast<int>(data.size())});
}

void begin_local(UploadSink sink) {
    registry() = {};
    replace_sink(std::make_shared<const UploadSink>(
        sink != nullptr ? std::move(sink) : [](const Upload &) { return 0; }));
}

void end_local() {
    replace_sink(nullptr);
    registry() = {};
}

Answer call(const std::string &family, int slot, const char *request) {
    const auto index = family_index(family);
    if (!index || slot < 0) {
        return {};
    }
    const int length = request == nullptr ? 0 : static_cast<int>(std::string_view(request).size());
    const Reply reply = run_command(registry(), *index, static_cast<size_t>(slot), request, length);
    Answer answer;
    answer.result = reply.result;
    if (reply.text != nullptr) {
        answer.response = std::string(reply.text, static_cast<size_t>(reply.length));
        answer.length = reply.length;
    }
    return answer;
}

int assign_serial(const std::string &serial) {
    return run_serial_setter(registry(), serial.c_str(), static_cast<int>(serial.size()));
}

}  // namespace nxapi

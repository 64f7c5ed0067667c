#include "nxapi/client.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <utility>

#include "nxapi/identity.h"
#include "nxapi/log.h"
#include "nxapi/topics.h"

namespace nxapi {
namespace {

constexpr size_t longest_serial = 32;

/** "<family>/<slot>" as numbers; false when the text is no slot of a family. */
bool parse_slot(std::string_view target, size_t &family, size_t &slot) {
    const size_t slash = target.find('/');
    const auto index = family_index(target.substr(0, slash));
    if (!index || slash == target.npos) {
        return false;
    }
    const char *end = target.data() + target.size();
    const auto [rest, error] = std::from_chars(target.data() + slash + 1, end, slot);
    family = *index;
    return error == std::errc() && rest == end && slot < families[family].slots;
}

/** A text without the terminating NUL that its length may count. */
std::string_view without_nul(std::string_view text) {
    return text.ends_with('\0') ? text.substr(0, text.size() - 1) : text;
}

}  // namespace

bool is_serial(std::string_view serial) {
    return !serial.empty() && serial.size() <= longest_serial &&
           serial.find_first_of("+#/") == serial.npos &&
           mosquitto_validate_utf8(serial.data(), static_cast<int>(serial.size())) ==
               MOSQ_ERR_SUCCESS;
}

Client::Client(Settings settings, const Registry &registry)
    : settings_(std::move(settings)), registry_(registry), link_(settings_, inbox_) {}

bool Client::start() {
    return inbox_.fd() >= 0 && fd() >= 0 && (settings_.brokers.empty() || link_.start());
}

bool Client::introduce(const nx_basic_info &info) {
    const std::string serial = field_text(info.serial);
    if (!is_serial(serial)) {
        say(Level::error, "\"%s\" is no serial number: it has 1 to 32 characters and none of + # /",
            serial.c_str());
        return false;
    }
    std::string identity = identity_text(info, Credential::left_out);
    if (identity.empty()) {
        return false;
    }
    info_ = info;
    link_.introduce(serial, std::move(identity));
    return true;
}

std::optional<int> Client::fault(std::string_view call) const {
    for (const auto &[name, result] : settings_.faults) {
        if (name == call) {
            return result;
        }
    }
    return std::nullopt;
}

bool Client::upload(std::string_view kind, std::string_view data) {
    if (settings_.brokers.empty()) {
        return false;
    }
    if (kind == topics::binding) {
        link_.bind(std::string(data));
        return true;
    }
    Message message;
    message.topic = kind;
    message.payload = data;
    return link_.send(std::move(message));
}

void Client::dispatch() {
    link_.begin_turn();
    inbox_.take(batch_);
    for (const Command &command : batch_) {
        try {
            run(command);
        } catch (const std::bad_alloc &) {
            say(Level::error, "out of memory; the command on %s has no response",
                command.target.c_str());
        }
    }
    batch_.clear();
    link_.end_turn();
}

void Client::run(const Command &command) {
    if (command.target == topics::serial) {
        const int result = assign_serial(command.request);
        link_.send(response_to(command, result, {}));
        if (result == 0) {
            introduce(info_);
        }
        return;
    }
    size_t family = 0;
    size_t slot = 0;
    if (!parse_slot(command.target, family, slot)) {
        link_.send(response_to(command, -1, {}));
        return;
    }
    const Reply reply = run_command(registry_, family, slot, command.request.c_str(),
                                    static_cast<int>(command.request.size()));
    const std::string_view text(reply.text == nullptr ? "" : reply.text,
                                static_cast<size_t>(reply.length));
    if (!link_.send(response_to(command, reply.result, std::string(without_nul(text))))) {
        link_.complain(Trouble::too_large, command.target);
        link_.send(response_to(command, -1, {}));
    }
}

// What the agent's setter returns says nothing, so only a text that is no serial number
// fails.
int Client::assign_serial(const std::string &serial) {
    if (!is_serial(serial) || registry_.set_serial == nullptr) {
        link_.complain(Trouble::bad_serial, "the one in use stays");
        return -1;
    }
    run_serial_setter(registry_, serial.c_str(), static_cast<int>(serial.size()));
    std::fill(std::begin(info_.serial), std::end(info_.serial), '\0');
    std::copy(serial.begin(), serial.end(), info_.serial);
    return 0;
}

}  // namespace nxapi

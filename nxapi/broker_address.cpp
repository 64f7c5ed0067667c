#include "nxapi/broker_address.h"

#include <charconv>

namespace nxapi {
namespace {

constexpr int plain_port = 1883;
constexpr int tls_port = 8883;

/** Stands between user and host in addresses of other kinds. */
constexpr char user_mark = '@';

bool skip(std::string_view &text, std::string_view prefix) {
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

/** Takes the host off the front of "host[:port]"; empty when there is none. */
std::string_view take_host(std::string_view &text) {
    const bool bracketed = skip(text, "[");
    const size_t end = bracketed ? text.find(']') : text.find(':');
    if (bracketed && end == text.npos) {
        return {};
    }
    const std::string_view host = text.substr(0, end);
    text.remove_prefix(host.size() + (bracketed ? 1 : 0));
    return host;
}

}  // namespace

bool parse_number(std::string_view text, long least, long most, long &number) {
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > most) {
        return false;
    }
    number = value;
    return true;
}

const char *broker_fault(std::string_view text, BrokerAddress &address) {
    if (text.find(user_mark) != text.npos) {
        return "names a user: nxapi.conf has username= and password= for that, nxctl has --user "
               "and NXCTL_PASSWORD";
    }
    const bool tls = skip(text, "mqtts://");
    if (!tls && !skip(text, "mqtt://")) {
        return "is no broker address: it starts with mqtt:// or mqtts://";
    }
    if (text.ends_with('/')) {
        text.remove_suffix(1);
    }
    const std::string_view host = take_host(text);
    if (host.empty() || host.find_first_of("/ ") != host.npos) {
        return "names no host";
    }
    long port = tls ? tls_port : plain_port;
    if (!text.empty() && !(skip(text, ":") && parse_number(text, 1, 65535, port))) {
        return "has no port between 1 and 65535 behind its host";
    }
    address = {std::string(host), static_cast<int>(port), tls};
    return nullptr;
}

const char *broker_list_fault(std::string_view text, std::vector<BrokerAddress> &addresses,
                              std::string_view *which) {
    addresses.clear();
    for (;;) {
        const std::string_view part = text.substr(0, text.find(','));
        if (const char *fault = broker_fault(part, addresses.emplace_back())) {
            addresses.clear();
            if (which != nullptr) {
                *which = part;
            }
            return fault;
        }
        if (part.size() == text.size()) {
            return nullptr;
        }
        text.remove_prefix(part.size() + 1);
    }
}

bool parse_brokers(std::string_view text, std::vector<BrokerAddress> &addresses, std::string &why) {
    std::string_view part;
    const char *fault = broker_list_fault(text, addresses, &part);
    if (fault != nullptr) {
        why = part.find(user_mark) == part.npos ? '"' + std::string(part) + '"'
                                                : "the broker address";
        why.append(1, ' ').append(fault);
    }
    return fault == nullptr;
}

}  // namespace nxapi

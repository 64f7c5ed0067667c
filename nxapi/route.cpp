#include "nxapi/route.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace nxapi {

std::vector<std::string> look_up(const std::string &host, std::string &why) {
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    wanted.ai_flags = AI_ADDRCONFIG;
    addrinfo *found = nullptr;
    const int result = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
    if (result != 0) {
        why = result == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(result);
        return {};
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo *)> owner(found, freeaddrinfo);
    std::vector<std::string> addresses;
    for (; found != nullptr; found = found->ai_next) {
        char text[NI_MAXHOST];
        if (getnameinfo(found->ai_addr, found->ai_addrlen, text, sizeof(text), nullptr, 0,
                        NI_NUMERICHOST) == 0 &&
            std::ranges::find(addresses, text) == addresses.end()) {
            addresses.emplace_back(text);
        }
    }
    if (addresses.empty()) {
        why = "the name has no address";
    }
    return addresses;
}

Route::Route(const std::vector<BrokerAddress> &brokers, unsigned chance, LookUp book)
    : brokers_(brokers), look_up_(book), left_(brokers.size()) {
    // The first call of `next` goes one further.
    here_.broker = brokers.empty() ? 0 : (chance + brokers.size() - 1) % brokers.size();
}

const Stop *Route::next(std::string &why) {
    if (addresses_.empty()) {
        left_ = left_ == 0 ? brokers_.size() : left_;
        --left_;
        here_.broker = (here_.broker + 1) % brokers_.size();
        // TLS compares the name with the certificate, so it has to connect by that.
        const BrokerAddress &next = broker();
        addresses_ = next.tls ? std::vector{next.host} : look_up_(next.host, why);
        std::ranges::reverse(addresses_);
        if (addresses_.empty()) {
            return nullptr;
        }
    }
    here_.address = std::move(addresses_.back());
    addresses_.pop_back();
    return &here_;
}

void Route::arrived() {
    left_ = brokers_.size();
}

}  // namespace nxapi

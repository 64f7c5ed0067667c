#include <arpa/inet.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "builtin.h"
#include "file.h"
#include "topo/server.h"
#include "trace.h"

namespace {

constexpr uint16_t pass_through_port = 514;

/** What the module recognises on its way out, every number high byte first. */
struct Marker {
    uint32_t magic_a;
    uint32_t magic_b;
    uint32_t ip;
    uint8_t mac[6];
    uint8_t zero[2];
};
static_assert(sizeof(Marker) == 20);

/** Reads six bytes of two digits each with any one character between them; what
 *  the text does not hold stays 0. */
void read_mac(const char *text, uint8_t *mac) {
    constexpr size_t step = 3;
    const size_t length = strlen(text);
    for (size_t i = 0; i < 6 && i * step < length; ++i) {
        unsigned value = 0;
        sscanf(text + i * step, "%2x", &value);
        mac[i] = static_cast<uint8_t>(value);
    }
}

void trace_bytes(const Marker &marker) {
    std::array<uint8_t, sizeof marker> bytes;
    memcpy(bytes.data(), &marker, sizeof marker);
    char text[sizeof marker * 3 + 1];
    for (size_t i = 0; i < bytes.size(); ++i) {
        snprintf(text + i * 3, 4, "%02x ", bytes[i]);
    }
    NX_TRACE_AS("send_pass_route_data", "%s\n", text);
}

}  // namespace

int send_pass_route_data(const char *ip, const char *mac, int) {
    const Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        NX_TRACE("create socket fail!\n");
        return -1;
    }
    Marker marker{htonl(0x12345678), htonl(0x87654321), inet_addr(ip), {}, {}};
    read_mac(mac, marker.mac);
    sockaddr_in resolver{};
    resolver.sin_family = AF_INET;
    resolver.sin_port = htons(pass_through_port);
    resolver.sin_addr.s_addr = inet_addr(NX_RESOLVER);
    const auto sent =
        static_cast<int>(sendto(fd.get(), &marker, sizeof marker, 0,
                                reinterpret_cast<const sockaddr *>(&resolver), sizeof resolver));
    if (sent == -1) {
        NX_TRACE("send udp packet faild....!\n");
    } else {
        NX_TRACE("send udp packet ok....!\n");
    }
    trace_bytes(marker);
    return sent;
}

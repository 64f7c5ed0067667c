#include "topo/discovery.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "file.h"
#include "nx_limits.h"
#include "platform/netif.h"
#include "store.h"
#include "trace.h"

namespace {

constexpr size_t request_size = 64;
constexpr uint8_t discover = 1;

/** A peer that does not answer must not hold the main thread up. */
void bound_waits(const Fd &fd) {
    const timeval one_second{1, 0};
    setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &one_second, sizeof one_second);
    setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &one_second, sizeof one_second);
}

/** A line of the station file: MAC in lower case, a text, two numbers. */
struct WiredStation {
    char mac[limits::mac_text];
    char text[256];
    int unused;
    int number;
};

WiredStation parse_station(const char *line) {
    WiredStation station{};
    sscanf(line, "%17[^';'];%255[^';'];%d;%d", station.mac, station.text, &station.unused,
           &station.number);
    return station;
}

}  // namespace

int active_autodiscover() {
    const Fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        NX_TRACE("creat socket error\n");
    }
    bound_waits(fd);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    text_copy(address.sun_path, "/tmp/auto.socket");
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        NX_TRACE("connect the server error\n");
    }
    const std::array<uint8_t, request_size> request{discover};
    if (send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) {
        NX_TRACE("write to server error\n");
    }
    std::array<char, 1024> answer;  // that it came is all that counts
    recv(fd.get(), answer.data(), answer.size(), 0);
    return 1;
}

void wirestation_lookup(const char *mac, char *text, size_t text_size, int *number) {
    char wanted[limits::mac_text];
    text_copy(wanted, mac);
    string_lower_mac(wanted, wanted);
    const File file(fopen("/tmp/wirestation", "re"));
    if (!file) {
        perror("fopen");
        return;
    }
    char line[256];
    while (read_line(file.get(), line)) {
        const WiredStation station = parse_station(line);
        text_copy(text, text_size, station.text);
        *number = station.number;
        if (strcmp(station.mac, wanted) == 0) {
            return;
        }
    }
}

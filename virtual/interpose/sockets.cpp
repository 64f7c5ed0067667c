/**
 * Sockets of the agent: local ones live in the device folder, and packets for
 * other machines stay here.
 */
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "virtual/device/caught.h"

using vap::Json;

namespace {

using SocketCall = int(int, const sockaddr *, socklen_t);

/** Path of a local socket address; "" for any other address. */
std::string local_path(const sockaddr *address, socklen_t length) {
    constexpr size_t head = offsetof(sockaddr_un, sun_path);
    if (address == nullptr || length <= head || address->sa_family != AF_UNIX) {
        return "";
    }
    const char *path = reinterpret_cast<const sockaddr_un *>(address)->sun_path;
    return {path, strnlen(path, length - head)};
}

/** Calls `next` with the folder's file in place of a device path. */
int call_in_folder(SocketCall *next, int fd, const std::string &device_path) {
    const vap::Inside inside;
    const std::filesystem::path file = vap::host_path(device_path);
    vap::make_folders(file.parent_path());
    const vap::LocalAddress address(file);
    return next(fd, address.get(), address.length());
}

/** Would the packet leave the machine? */
bool leaves_machine(const sockaddr *address, socklen_t length) {
    if (address == nullptr || length < sizeof(sockaddr_in)) {
        return false;
    }
    if (address->sa_family == AF_INET) {
        const auto *v4 = reinterpret_cast<const sockaddr_in *>(address);
        return ntohl(v4->sin_addr.s_addr) >> 24 != 127;
    }
    if (address->sa_family == AF_INET6 && length >= sizeof(sockaddr_in6)) {
        const auto *v6 = reinterpret_cast<const sockaddr_in6 *>(address);
        return !IN6_IS_ADDR_LOOPBACK(&v6->sin6_addr);
    }
    return false;
}

/** Address text and port. */
std::pair<std::string, int> endpoint(const sockaddr *address) {
    char text[INET6_ADDRSTRLEN] = {};
    if (address->sa_family == AF_INET) {
        const auto *v4 = reinterpret_cast<const sockaddr_in *>(address);
        inet_ntop(AF_INET, &v4->sin_addr, text, sizeof text);
        return {text, ntohs(v4->sin_port)};
    }
    const auto *v6 = reinterpret_cast<const sockaddr_in6 *>(address);
    inet_ntop(AF_INET6, &v6->sin6_addr, text, sizeof text);
    return {text, ntohs(v6->sin6_port)};
}

}  // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept {
    static auto *const next = vap::real<int(int, int, int)>("socket");
    return vap::fails("socket", VAP_CALLER) ? -1 : next(domain, type, protocol);
}

int bind(int fd, const sockaddr *address, socklen_t length) noexcept {
    static auto *const next = vap::real<SocketCall>("bind");
    if (vap::fails("bind", VAP_CALLER)) {
        return -1;
    }
    const std::string path = local_path(address, length);
    if (!vap::caught(path.c_str())) {
        return next(fd, address, length);
    }
    const int result = call_in_folder(next, fd, path);
    const int error = errno;
    vap::record("bind", Json::array({path}), result);
    errno = error;
    return result;
}

int listen(int fd, int backlog) noexcept {
    static auto *const next = vap::real<int(int, int)>("listen");
    return vap::fails("listen", VAP_CALLER) ? -1 : next(fd, backlog);
}

int accept(int fd, sockaddr *address, socklen_t *length) {
    static auto *const next = vap::real<int(int, sockaddr *, socklen_t *)>("accept");
    return vap::fails("accept", VAP_CALLER) ? -1 : next(fd, address, length);
}

int accept4(int fd, sockaddr *address, socklen_t *length, int flags) {
    static auto *const next = vap::real<int(int, sockaddr *, socklen_t *, int)>("accept4");
    return vap::fails("accept", VAP_CALLER) ? -1 : next(fd, address, length, flags);
}

int connect(int fd, const sockaddr *address, socklen_t length) {
    static auto *const next = vap::real<SocketCall>("connect");
    if (vap::fails("connect", VAP_CALLER)) {
        return -1;
    }
    const std::string path = local_path(address, length);
    return vap::caught(path.c_str()) ? call_in_folder(next, fd, path) : next(fd, address, length);
}

ssize_t sendto(int fd, const void *data, size_t size, int flags, const sockaddr *address,
               socklen_t length) {
    using Call = ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t);
    static auto *const next = vap::real<Call>("sendto");
    if (vap::fails("sendto", VAP_CALLER)) {
        return -1;
    }
    if (!vap::caught() || !leaves_machine(address, length)) {
        return next(fd, data, size, flags, address, length);
    }
    const auto [host, port] = endpoint(address);
    vap::record("sendto", Json::array({vap::bytes_arg(data, size), host, port}), size);
    return static_cast<ssize_t>(size);
}

}  // extern "C"

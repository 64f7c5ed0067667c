#include "core/control_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "cloud/config_file.h"
#include "core/event_loop.h"
#include "file.h"
#include "platform/nxapi.h"
#include "trace.h"

namespace {

constexpr const char *socket_path = "/var/norvex_socket";
constexpr const char *log_prefix = "norvex.log.";
constexpr int backlog = 20;
constexpr size_t message_size = 1024;
constexpr timeval message_wait = {2, 0};  // for a sender that connects and is silent

struct Order {
    const char *message;
    int (*run)();
};

/** Messages that must be equal to the whole text. */
constexpr Order orders[] = {
    {"DownloadCfg", norvex_config_upload},
    {"SkyModeChange", norvex_mode_change_upload},
};

[[noreturn]] void give_up(Fd &socket, const char *reason) {
    socket.reset();
    NX_TRACE_AS("nx_server_init", "%s error\n", reason);
    exit(1);
}

void obey(const char *message) {
    for (const Order &order : orders) {
        if (strcmp(message, order.message) == 0) {
            NX_TRACE_AS("recv_msg_handle", "recv cgi msg succeed! msg:%s\n", message);
            order.run();
            return;
        }
    }
    if (strstr(message, log_prefix) != nullptr) {
        running_log_upload(message);
    }
}

}  // namespace

int nx_server_init(const char *path, int *fd_out) {
    Fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener) {
        give_up(listener, "socket");
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof address.sun_path);
    unlink(path);
    // The kernel refuses the length of a path that does not fit.
    const auto length = static_cast<socklen_t>(strlen(path) + sizeof address.sun_family);
    if (bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), length) != 0) {
        give_up(listener, "bind");
    }
    NX_TRACE("UNIX domain socket bound\n");
    if (listen(listener.get(), backlog) != 0) {
        give_up(listener, "listen");
    }
    *fd_out = listener.release();
    return *fd_out;
}

int nx_cgi_init() {
    int fd = -1;
    Fd listener(nx_server_init(socket_path, &fd));
    if (!listener) {
        NX_TRACE("create socket is err!\n");
        return -1;
    }
    if (poll_item_add(fd, POLLIN, recv_msg_handle) == nullptr) {
        return -1;
    }
    NX_TRACE("init succeed!  fd:%d\n", fd);
    return listener.release();
}

int recv_msg_handle(void *, int fd, int) {
    const Fd connection(accept4(fd, nullptr, nullptr, SOCK_CLOEXEC));
    if (!connection) {
        NX_TRACE("accept err!\n");
        return -1;
    }
    // One byte more than is read, so the text always ends. What did not come
    // leaves the empty text, which is no message.
    char message[message_size + 1] = {};
    setsockopt(connection.get(), SOL_SOCKET, SO_RCVTIMEO, &message_wait, sizeof message_wait);
    if (recv(connection.get(), message, message_size, 0) > 0) {
        obey(message);
    }
    return 0;
}

void running_log_upload(const char *message) {
    const char *text = message + strnlen(message, strlen(log_prefix));
    nx_api_sys_log_upload_v1(text, static_cast<int>(strlen(text)));
    NX_TRACE("%s\n", text);
}

/**
 * Messages of local programs to the control socket.
 */
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "core/control_socket.h"
#include "fuzz/support.h"
#include "include/file.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::device();
    static const int listener = nx_cgi_init();
    const Fd sender(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address{AF_UNIX, "/var/norvex_socket"};
    if (connect(sender.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        send(sender.get(), data, size, MSG_NOSIGNAL);
        shutdown(sender.get(), SHUT_WR);  // else an empty message would be waited for
        recv_msg_handle(nullptr, listener, POLLIN);
    }
    return 0;
}

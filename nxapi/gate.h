/**
 * The one descriptor that the agent's main thread watches for the library.
 */
#ifndef NXAPI_GATE_H
#define NXAPI_GATE_H

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace nxapi {

/** An epoll set: the call of the network thread for good, and the broker's socket while
 *  a connection is up. Any thread changes what is in it, where only the main thread could
 *  change the agent's own list; it is readable for whatever happens to a socket, an error
 *  without input too; and it holds a duplicate of the socket, which is the set's to take
 *  out and close, whoever closes the original, however its number is used next. */
class Gate {
  public:
    Gate() : set_(epoll_create1(EPOLL_CLOEXEC)) {}
    Gate(const Gate &) = delete;
    Gate &operator=(const Gate &) = delete;
    ~Gate() {
        close_socket();
        if (set_ >= 0) {
            close(set_);
        }
    }

    /** Readable while something in the set is; -1 when there is no descriptor. */
    int fd() const { return set_; }

    /** Makes the gate readable with `fd`, for good. */
    bool admit(int fd) { return add(fd, call_mark); }

    /** The same with a connection's socket until `close_socket`. */
    bool open_socket(int socket) {
        socket_ = fcntl(socket, F_DUPFD_CLOEXEC, 0);
        if (socket_ >= 0 && add(socket_, socket_mark)) {
            return true;
        }
        close_socket();
        return false;
    }

    void close_socket() {
        if (socket_ >= 0) {
            epoll_ctl(set_, EPOLL_CTL_DEL, socket_, nullptr);
            close(socket_);
            socket_ = -1;
        }
    }

    /** Has the socket something to read, if only its end? */
    bool is_socket_ready() const {
        epoll_event events[2];
        const int count = epoll_wait(set_, events, 2, 0);
        for (int i = 0; i < count; ++i) {
            if (events[i].data.u32 == socket_mark) {
                return true;
            }
        }
        return false;
    }

  private:
    static constexpr unsigned call_mark = 0;
    static constexpr unsigned socket_mark = 1;

    bool add(int fd, unsigned mark) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = mark;
        return epoll_ctl(set_, EPOLL_CTL_ADD, fd, &event) == 0;
    }

    int set_;
    int socket_ = -1;
};

}  // namespace nxapi

#endif

/**
 * A broker by hand: the test takes each packet of one device and decides what goes
 * back, if anything.
 */
#ifndef TESTS_NXAPI_HAND_BROKER_H
#define TESTS_NXAPI_HAND_BROKER_H

#include <poll.h>

#include <string>

#include "tests/nxapi/cloud_device.h"

namespace test {

class HandBroker {
  public:
    enum Type { connect = 1, publish = 3, subscribe = 8, pingreq = 12, disconnect = 14, end = 0 };

    /** Its first byte's upper half, and what stands behind its length. */
    struct Packet {
        int type = end;
        std::string body;
    };

    HandBroker() = default;
    ~HandBroker() { close(fd_); }
    HandBroker(const HandBroker &) = delete;
    HandBroker &operator=(const HandBroker &) = delete;

    int port() const { return listener_.port(); }

    nxapi::Settings settings() const {
        nxapi::Settings settings;
        settings.brokers = {{"127.0.0.1", port(), false}};
        settings.retry_ms = 200;
        return settings;
    }

    /** Lets the device in, whatever was before; its CONNECT. */
    Packet let_in(const std::string &properties = "") {
        accept();
        return greet(properties);
    }

    /** Says yes to the CONNECT of the present connection. */
    Packet greet(const std::string &properties = "") {
        Packet packet = next();
        const auto size = static_cast<char>(properties.size());
        answer(0x20, std::string(2, '\0') + size + properties);
        return packet;
    }

    /** Talks through another descriptor, which it closes at the end. */
    void use(int fd) {
        hang_up();
        fd_ = fd;
    }

    /** Takes the next connection and says nothing yet. */
    void accept() {
        hang_up();
        pollfd ready{listener_.fd(), POLLIN, 0};
        poll(&ready, 1, patience_ms);
        fd_ = accept4(listener_.fd(), nullptr, nullptr, SOCK_CLOEXEC);
    }

    /** The next packet; `end` when the device closed the connection or stays silent. */
    Packet next() {
        std::string head = take(1);
        size_t length = 0;
        for (size_t shift = 0; !head.empty(); shift += 7) {
            const std::string digit = take(1);
            length |= static_cast<size_t>(digit.empty() ? 0 : digit[0] & 0x7f) << shift;
            if (digit.empty() || (digit[0] & 0x80) == 0) {
                return {static_cast<unsigned char>(head[0]) >> 4, take(length)};
            }
        }
        return {};
    }

    /** Skips what is of another type. */
    Packet next(Type type) {
        Packet packet = next();
        while (packet.type != type && packet.type != end) {
            packet = next();
        }
        return packet;
    }

    /** The next message on a topic of the device, skipping others. */
    Packet next_on(const std::string &topic) {
        Packet packet = next(publish);
        while (packet.type != end && packet.body.find(topic) != 2) {
            packet = next(publish);
        }
        return packet;
    }

    static std::string packet(int head, const std::string &body) {
        return std::string{static_cast<char>(head), static_cast<char>(body.size())} + body;
    }

    void answer(int head, const std::string &body) { write(packet(head, body)); }

    /** Sends bytes at once, packets as a rule. */
    void write(const std::string &bytes) { send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

    void hang_up() { close(std::exchange(fd_, -1)); }

    /** Ends the connection in the way of a machine that knows nothing of it. */
    void reset() {
        const linger at_once{1, 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
        hang_up();
    }

    int fd() const { return fd_; }

  private:
    static constexpr int patience_ms = 20'000;

    std::string take(size_t size) {
        std::string bytes(size, '\0');
        size_t done = 0;
        pollfd ready{fd_, POLLIN, 0};
        while (done < size && poll(&ready, 1, patience_ms) > 0) {
            const ssize_t got = read(fd_, bytes.data() + done, size - done);
            if (got <= 0) {
                return {};
            }
            done += static_cast<size_t>(got);
        }
        return done == size ? bytes : std::string();
    }

    Listener listener_;
    int fd_ = -1;
};

}  // namespace test

#endif

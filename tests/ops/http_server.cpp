#include "tests/ops/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace test {
namespace {

struct Listener {
    int fd;
    int port;
};

Listener bound_socket() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        throw std::runtime_error("no loopback port");
    }
    return {fd, ntohs(address.sin_port)};
}

void answer(int connection, const std::string &body) {
    std::string request;
    char block[1024];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t got = recv(connection, block, sizeof block, 0);
        if (got <= 0) {
            return;
        }
        request.append(block, static_cast<size_t>(got));
    }
    const std::string response =
        "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
        "\r\n\r\n" + body;
    for (size_t sent = 0; sent < response.size();) {
        const ssize_t done =
            send(connection, response.data() + sent, response.size() - sent, MSG_NOSIGNAL);
        if (done <= 0) {
            return;
        }
        sent += static_cast<size_t>(done);
    }
}

}  // namespace

HttpServer::HttpServer(std::vector<std::string> bodies) : bodies_(std::move(bodies)) {
    const Listener listener = bound_socket();
    listener_ = listener.fd;
    port_ = listener.port;
    listen(listener_, 16);
    thread_ = std::thread([this] { serve(); });
}

HttpServer::~HttpServer() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}

void HttpServer::serve() {
    for (;;) {
        const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) {
            return;
        }
        const auto number = static_cast<size_t>(requests_++);
        answer(connection, bodies_[std::min(number, bodies_.size() - 1)]);
        close(connection);
    }
}

std::string deserted_url() {
    const Listener listener = bound_socket();
    close(listener.fd);
    return "http://127.0.0.1:" + std::to_string(listener.port) + "/";
}

}  // namespace test

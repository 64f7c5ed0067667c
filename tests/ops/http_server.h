/**
 * A small HTTP server on loopback: each request gets the next body of a list, and
 * the last one ever after.
 */
#ifndef TESTS_OPS_HTTP_SERVER_H
#define TESTS_OPS_HTTP_SERVER_H

#include <algorithm>
#include <thread>

#include "tests/support/processes.h"

namespace test {

class HttpServer {
  public:
    explicit HttpServer(std::vector<std::string> bodies) : bodies_(std::move(bodies)) {}
    ~HttpServer() {
        shutdown(listener_.fd(), SHUT_RDWR);
        thread_.join();
    }

    /** Address of a file of the server, without characters that a shell knows. */
    std::string url() const {
        return "http://127.0.0.1:" + std::to_string(listener_.port()) + "/fw/image.bin";
    }

  private:
    void serve() {
        int connection;
        for (size_t i = 0; (connection = accept(listener_.fd(), nullptr, nullptr)) >= 0; ++i) {
            answer(connection, bodies_[std::min(i, bodies_.size() - 1)]);
            close(connection);
        }
    }

    /** Reads a request and sends a body that one block takes. */
    static void answer(int connection, const std::string &body) {
        std::string request;
        char block[1024];
        while (request.find("\r\n\r\n") == request.npos) {
            const ssize_t got = recv(connection, block, sizeof block, 0);
            if (got <= 0) {
                return;
            }
            request.append(block, static_cast<size_t>(got));
        }
        const std::string response =
            "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        send(connection, response.data(), response.size(), MSG_NOSIGNAL);
    }

    std::vector<std::string> bodies_;
    Listener listener_;
    std::thread thread_{[this] { serve(); }};
};

}  // namespace test

#endif

/**
 * A small HTTP server on loopback: each request gets the next body of a list, and
 * the last one ever after.
 */
#ifndef TESTS_OPS_HTTP_SERVER_H
#define TESTS_OPS_HTTP_SERVER_H

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace test {

class HttpServer {
  public:
    explicit HttpServer(std::vector<std::string> bodies);
    ~HttpServer();
    HttpServer(const HttpServer &) = delete;
    HttpServer &operator=(const HttpServer &) = delete;

    /** Address of a file of the server, without characters that a shell knows. */
    std::string url() const {
        return "http://127.0.0.1:" + std::to_string(port_) + "/fw/image.bin";
    }
    int requests() const { return requests_; }

  private:
    void serve();

    std::vector<std::string> bodies_;
    int listener_;
    int port_;
    std::atomic<int> requests_ = 0;
    std::thread thread_;
};

/** An address where nobody listens. */
std::string deserted_url();

}  // namespace test

#endif

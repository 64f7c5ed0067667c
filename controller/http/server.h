/**
 * HTTP/1.1 on one thread: a listener, and a coroutine for each connection.
 */
#ifndef CONTROLLER_HTTP_SERVER_H
#define CONTROLLER_HTTP_SERVER_H

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>

#include "controller/http/message.h"

namespace http {

using Handler = std::function<boost::asio::awaitable<Response>(Request)>;

struct Listening {
    std::string host = "127.0.0.1"; /**< a literal address */
    unsigned short port = 8080;     /**< 0: a free one */
    std::string certificate, key;   /**< PEM files; both or none */
};

/** Bounds of every request. */
inline constexpr size_t most_header = 16 * 1024;
inline constexpr size_t most_body = 2 * 1024 * 1024;
inline constexpr size_t most_connections = 4096;

class Server {
  public:
    /** Listens; throws std::runtime_error when it cannot. The handler throws nothing. */
    Server(boost::asio::io_context &context, const Listening &where, Handler handler);
    ~Server();

    unsigned short port() const;

    /** Takes no connection any more, ends streams and those that rest. */
    void stop();

  private:
    struct Inside;
    std::shared_ptr<Inside> inside_;
};

}  // namespace http

#endif

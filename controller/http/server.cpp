#include "controller/http/server.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <cstdio>
#include <set>
#include <stdexcept>

namespace http {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::ip::tcp;
using boost::system::error_code;
using Plain = beast::tcp_stream;
using Secure = beast::ssl_stream<beast::tcp_stream>;

constexpr std::chrono::seconds request_time{30}; /**< for a whole request to come */
constexpr std::chrono::seconds rest_time{75};    /**< between two requests */
constexpr std::chrono::seconds beat{15};         /**< of a stream without events */

Plain &below(Plain &stream) {
    return stream;
}
Plain &below(Secure &stream) {
    return stream.next_layer();
}

/** "Bad Request" behind the status of what is no request at all. */
Response refusal(int status, const std::string &title) {
    Response response;
    response.status = status;
    response.headers = {{"content-type", "application/problem+json"}};
    response.body = R"({"type":"about:blank","title":")" + title + R"(","status":)" +
                    std::to_string(status) + "}";
    return response;
}

std::string lower(beast::string_view name) {
    std::string out(name);
    for (char &letter : out) {
        letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
    }
    return out;
}

}  // namespace

struct Server::Inside : std::enable_shared_from_this<Inside> {
    Inside(asio::io_context &io, const Listening &where, Handler respond)
        : context(io), acceptor(io), handler(std::move(respond)) {
        if (!where.certificate.empty()) {
            tls.emplace(asio::ssl::context::tls_server);
            tls->set_options(asio::ssl::context::default_workarounds |
                             asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1);
            tls->use_certificate_chain_file(where.certificate);
            tls->use_private_key_file(where.key, asio::ssl::context::pem);
        }
        const tcp::endpoint endpoint(asio::ip::make_address(where.host), where.port);
        acceptor.open(endpoint.protocol());
        acceptor.set_option(asio::socket_base::reuse_address(true));
        acceptor.bind(endpoint);
        acceptor.listen();
    }

    asio::awaitable<void> accept() {
        while (acceptor.is_open()) {
            error_code error;
            tcp::socket socket =
                co_await acceptor.async_accept(asio::redirect_error(asio::use_awaitable, error));
            if (error) {  // no descriptors, for example
                asio::steady_timer pause(context, std::chrono::milliseconds(100));
                co_await pause.async_wait(asio::redirect_error(asio::use_awaitable, error));
                continue;
            }
            if (sockets.size() < most_connections) {
                asio::co_spawn(context, serve(std::move(socket)), asio::detached);
            }
        }
    }

    asio::awaitable<void> serve(tcp::socket socket) {
        const auto self = shared_from_this();
        error_code error;
        socket.set_option(tcp::no_delay(true), error);
        const tcp::endpoint peer = socket.remote_endpoint(error);
        const std::string address = error ? "" : peer.address().to_string();
        try {
            if (tls) {
                Secure stream(std::move(socket), *tls);
                below(stream).expires_after(request_time);
                co_await stream.async_handshake(asio::ssl::stream_base::server,
                                                asio::use_awaitable);
                co_await talk(stream, address);
                below(stream).expires_after(std::chrono::seconds(2));
                co_await stream.async_shutdown(asio::redirect_error(asio::use_awaitable, error));
            } else {
                Plain stream(std::move(socket));
                co_await talk(stream, address);
                stream.socket().shutdown(tcp::socket::shutdown_send, error);
            }
        } catch (const std::exception &) {  // the connection ended
        }
    }

    /** One request after the other, until one side wants no more. */
    template <typename Transport>
    asio::awaitable<void> talk(Transport &stream, const std::string &peer) {
        const auto at = sockets.insert(&below(stream)).first;
        const auto leave = std::shared_ptr<void>(nullptr, [&](void *) { sockets.erase(at); });
        beast::flat_buffer buffer(most_header + most_body);
        for (bool more = true; more && !ends;) {
            beast::http::request_parser<beast::http::string_body> parser;
            parser.header_limit(most_header);
            parser.body_limit(most_body);
            below(stream).expires_after(rest_time);
            error_code error;
            co_await beast::http::async_read_header(
                stream, buffer, parser, asio::redirect_error(asio::use_awaitable, error));
            if (!error) {
                below(stream).expires_after(request_time);
                co_await beast::http::async_read(stream, buffer, parser,
                                                 asio::redirect_error(asio::use_awaitable, error));
            }
            const bool is_fault =
                error.category() == make_error_code(beast::http::error::bad_method).category() &&
                error != beast::http::error::end_of_stream &&
                error != beast::http::error::partial_message;
            if (error && !is_fault) {
                co_return;  // the client is gone or silent
            }
            if (error) {
                const bool large = error == beast::http::error::body_limit ||
                                   error == beast::http::error::header_limit;
                // Named: gcc 12 destroys a temporary of a co_await expression twice.
                const Response told =
                    large ? refusal(413, "Content Too Large") : refusal(400, "Bad Request");
                co_await write(stream, told, false, false);
                co_return;
            }
            more = co_await answer(stream, parser.get(), peer);
        }
    }

    template <typename Transport>
    asio::awaitable<bool> answer(Transport &stream,
                                 const beast::http::request<beast::http::string_body> &message,
                                 const std::string &peer) {
        Request request;
        request.method = std::string(message.method_string());
        request.peer = peer;
        request.tls = tls.has_value();
        request.body = message.body();
        for (const auto &field : message) {
            request.headers[lower(field.name_string())] = std::string(field.value());
        }
        const bool keep = message.keep_alive() && !ends;
        const bool head = request.method == "HEAD";
        if (!split_target(std::string(message.target()), request)) {
            const Response told = refusal(400, "Bad Request");
            co_await write(stream, told, keep, head);
            co_return keep;
        }
        below(stream).expires_never();  // a device may take its time
        const Response response = co_await handler(std::move(request));
        below(stream).expires_after(request_time);
        if (response.stream && !head) {
            co_await follow(stream, response);
            co_return false;
        }
        co_await write(stream, response, keep, head);
        co_return keep;
    }

    template <typename Transport>
    asio::awaitable<void> write(Transport &stream, const Response &response, bool keep, bool head) {
        beast::http::response<beast::http::string_body> message;
        message.result(static_cast<unsigned>(response.status));
        for (const auto &[name, value] : response.headers) {
            message.insert(name, value);
        }
        message.keep_alive(keep);
        message.body() = response.body;
        message.prepare_payload();
        if (head) {
            message.body().clear();  // its length stays
        }
        co_await beast::http::async_write(stream, message, asio::use_awaitable);
    }

    /** Writes a stream as it comes, with a comment now and then that shows who is gone. */
    template <typename Transport>
    asio::awaitable<void> follow(Transport &stream, const Response &response) {
        beast::http::response<beast::http::empty_body> message;
        message.result(static_cast<unsigned>(response.status));
        for (const auto &[name, value] : response.headers) {
            message.insert(name, value);
        }
        message.keep_alive(false);
        beast::http::response_serializer<beast::http::empty_body> header(message);
        co_await beast::http::async_write_header(stream, header, asio::use_awaitable);
        const auto timer = std::make_shared<asio::steady_timer>(context);
        const auto stopped =
            std::shared_ptr<void>(nullptr, [&](void *) { response.stream->on_more(nullptr); });
        response.stream->on_more([timer] { timer->cancel(); });
        while (!ends) {
            std::string text = response.stream->next();
            if (text.empty()) {
                error_code woken;
                timer->expires_after(beat);
                streams.insert(timer.get());
                co_await timer->async_wait(asio::redirect_error(asio::use_awaitable, woken));
                streams.erase(timer.get());
                if (!woken) {
                    text = ": \n\n";
                }
            }
            if (!text.empty()) {
                below(stream).expires_after(request_time);
                co_await asio::async_write(stream, asio::buffer(text), asio::use_awaitable);
            }
        }
    }

    void stop() {
        ends = true;
        error_code ignored;
        acceptor.close(ignored);
        for (asio::steady_timer *timer : streams) {
            timer->cancel();
        }
        for (Plain *socket : std::set(sockets)) {
            socket->socket().shutdown(tcp::socket::shutdown_receive, ignored);
        }
    }

    asio::io_context &context;
    tcp::acceptor acceptor;
    std::optional<asio::ssl::context> tls;
    Handler handler;
    std::set<Plain *> sockets;
    std::set<asio::steady_timer *> streams; /**< timers of streams that wait */
    bool ends = false;
};

Server::Server(asio::io_context &context, const Listening &where, Handler handler) {
    try {
        inside_ = std::make_shared<Inside>(context, where, std::move(handler));
    } catch (const boost::system::system_error &error) {
        throw std::runtime_error("cannot listen on " + where.host + ":" +
                                 std::to_string(where.port) + ": " + error.code().message());
    }
    const auto inside = inside_;
    asio::co_spawn(
        context, [inside] { return inside->accept(); }, asio::detached);
}

Server::~Server() {
    stop();
}

unsigned short Server::port() const {
    return inside_->acceptor.local_endpoint().port();
}

void Server::stop() {
    inside_->stop();
}

}  // namespace http

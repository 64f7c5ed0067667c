/**
 * A request as it came and the response to it, without any network in them.
 */
#ifndef CONTROLLER_HTTP_MESSAGE_H
#define CONTROLLER_HTTP_MESSAGE_H

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace http {

struct Request {
    std::string method;
    std::string path;                           /**< decoded, without the query */
    std::map<std::string, std::string> query;   /**< decoded; the last of a name counts */
    std::map<std::string, std::string> headers; /**< by their names in lower case */
    std::string body;
    std::string peer; /**< address of the client */
    bool tls = false;

    std::string header(const std::string &name) const {
        const auto found = headers.find(name);
        return found == headers.end() ? std::string() : found->second;
    }

    /** A cookie's value; empty for none. */
    std::string cookie(const std::string &name) const;
};

/** A text that goes on: the connection writes what `next` gives, until the client is gone
 *  or the service ends. */
struct Stream {
    virtual ~Stream() = default;

    /** What is there to write now; empty for nothing. */
    virtual std::string next() = 0;

    /** Gets what it has to call when there is more; called once, null at the end. */
    virtual void on_more(std::function<void()> wake) = 0;
};

struct Response {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::shared_ptr<Stream> stream; /**< instead of the body */
};

/** Splits and decodes a request's target; false when it is none. */
bool split_target(const std::string &target, Request &request);

/** Percent-encodes all but letters, digits and "-._~". */
std::string encode(const std::string &text);

}  // namespace http

#endif

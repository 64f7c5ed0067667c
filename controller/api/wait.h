/**
 * Coroutines that wait for a call.
 */
#ifndef CONTROLLER_API_WAIT_H
#define CONTROLLER_API_WAIT_H

#include <boost/asio/awaitable.hpp>
#include <functional>

namespace api {

/** Runs `start` with a call that ends the wait; it may be called from any thread, once, at
 *  once too. The coroutine goes on where it was. */
boost::asio::awaitable<void> wait_for(std::function<void(std::function<void()>)> start);

}  // namespace api

#endif

/**
 * Which of several brokers a device tries next.
 */
#ifndef NXAPI_ROUTE_H
#define NXAPI_ROUTE_H

#include <cstddef>
#include <string>
#include <vector>

#include "nxapi/broker_address.h"

namespace nxapi {

/** One address to connect to. */
struct Stop {
    size_t broker = 0;   /**< its place in the list of the settings */
    std::string address; /**< literal, or the broker's name where TLS is to check that */
};

/** The addresses of a name as literals, in the order of the system's resolver, each once;
 *  none: `why` says why. Blocks. */
std::vector<std::string> look_up(const std::string &host, std::string &why);

/** Goes round all brokers, and at each round all addresses of a name, from a random one
 *  on, so that a fleet spreads over them. */
class Route {
  public:
    using LookUp = std::vector<std::string> (*)(const std::string &host, std::string &why);

    /** `brokers` outlive the route and are one or more, or it goes nowhere; `chance` is any
     *  number. */
    Route(const std::vector<BrokerAddress> &brokers, unsigned chance, LookUp book = look_up);

    /** The next address to try; null when the broker's name has none, and `why` says so.
     *  Blocks in the look-up of the name. */
    const Stop *next(std::string &why);

    /** The broker of the last `next`, and its place in the list. */
    const BrokerAddress &broker() const { return brokers_[here_.broker]; }
    size_t place() const { return here_.broker; }

    /** Has every address been tried since the last connection? Time for a longer pause. */
    bool is_round_over() const { return left_ == 0 && addresses_.empty(); }

    /** A connection was made: a new round begins behind this broker. */
    void arrived();

  private:
    const std::vector<BrokerAddress> &brokers_;
    LookUp look_up_;
    Stop here_;
    size_t left_;                        /**< brokers of this round */
    std::vector<std::string> addresses_; /**< of `here_`, still to be tried, the next last */
};

}  // namespace nxapi

#endif

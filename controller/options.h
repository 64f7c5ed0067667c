/**
 * What the service is started with.
 */
#ifndef CONTROLLER_OPTIONS_H
#define CONTROLLER_OPTIONS_H

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>
#include <vector>

#include "controller/fleet/fleet.h"
#include "controller/http/server.h"
#include "controller/mqtt/connection.h"

namespace controller {

struct Options {
    std::filesystem::path data;
    std::string database; /**< empty: SQLite in the data folder */
    std::string brokers;  /**< mqtt:// or mqtts://, with commas between them */
    std::string listen = "127.0.0.1:8080";
    std::string certificate, key;
    bool open = false;
    std::string secret_key; /**< empty: that of the data folder */
    mqtt::Access access;
    fleet::Schedule schedule{};
};

/** Adds all of them to the command line; each has an environment variable. */
void add_options(CLI::App &app, Options &options);

/** Where to listen; throws tools::Misuse for what is no address, and for one that others
 *  reach when the service is open to everybody. */
http::Listening listening_of(const Options &options);

/** The brokers of the list, one at least; throws tools::Misuse. */
std::vector<nxapi::BrokerAddress> brokers_of(const Options &options);

/** The database's address, and the data folder, which is made when it is missing. Throws
 *  tools::Failure. */
std::string database_of(const Options &options);

}  // namespace controller

#endif

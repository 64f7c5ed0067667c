/**
 * The library's settings file: lines of "key=value", where blank lines and lines
 * that start with # say nothing.
 */
#ifndef NXAPI_SETTINGS_H
#define NXAPI_SETTINGS_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nxapi/broker_address.h"

namespace nxapi {

inline constexpr const char *settings_path = "/etc/nxapi.conf";

struct Settings {
    std::vector<BrokerAddress> brokers; /**< none: there is no cloud */
    std::string username;
    std::string password;
    std::string client_id; /**< empty: the serial number */
    std::string cafile;    /**< PEM file of the one root that vouches for the broker */
    std::string certfile;  /**< PEM files of the device's own certificate and key */
    std::string keyfile;
    bool tls_verify = true;          /**< false: any certificate of the broker is taken */
    int keepalive_s = 60;            /**< seconds of silence before a ping, 5 to 65535 */
    int retry_ms = 1000;             /**< first pause between two attempts to connect */
    int connect_timeout_ms = 10'000; /**< longest wait for the broker to accept the device */
    int queue_messages = 256;        /**< uploads that wait while the broker is away */
    int queue_bytes = 2 << 20;       /**< and the bytes of their texts together */
    /** Calls of the contract that fail, each with the result that it returns; for
     *  tests of a whole agent. */
    std::vector<std::pair<std::string, int>> faults;
};

/** Reads the lines of a settings file. On failure `why` gets a sentence that names
 *  the line and repeats no value. */
bool parse_settings(std::string_view text, Settings &settings, std::string &why);

enum class SettingsFile { read, missing, malformed };

/** Reads a settings file; `why` gets a sentence unless it was read. */
SettingsFile read_settings(const char *path, Settings &settings, std::string &why);

}  // namespace nxapi

#endif

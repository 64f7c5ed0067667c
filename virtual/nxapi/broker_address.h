/**
 * Where a broker listens, as people write it.
 */
#ifndef VIRTUAL_NXAPI_BROKER_ADDRESS_H
#define VIRTUAL_NXAPI_BROKER_ADDRESS_H

#include <string>
#include <string_view>

namespace nxapi {

struct BrokerAddress {
    std::string host; /**< name or literal address, an IPv6 one without brackets */
    int port = 0;     /**< 1 to 65535 */
    bool tls = false;
};

/** Reads "mqtt://host[:port]" or "mqtts://host[:port]"; the ports default to 1883
 *  and 8883, an IPv6 address stands in brackets. On failure `why` gets a
 *  sentence and the address is left alone. */
bool parse_broker(std::string_view text, BrokerAddress &address, std::string &why);

/** Reads a decimal number between two bounds, all of the text. */
bool parse_number(std::string_view text, long least, long most, long &number);

}  // namespace nxapi

#endif

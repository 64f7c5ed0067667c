/**
 * Where a broker listens, as people write it.
 */
#ifndef NXAPI_BROKER_ADDRESS_H
#define NXAPI_BROKER_ADDRESS_H

#include <string>
#include <string_view>
#include <vector>

namespace nxapi {

struct BrokerAddress {
    std::string host; /**< name or literal address, an IPv6 one without brackets */
    int port = 0;     /**< 1 to 65535 */
    bool tls = false;
};

/** Reads "mqtt://host[:port]" or "mqtts://host[:port]"; the ports default to 1883
 *  and 8883, an IPv6 address stands in brackets. Null when it is one; otherwise
 *  what is wrong, as the end of a sentence that the text itself would begin, and
 *  the address is left alone. */
const char *broker_fault(std::string_view text, BrokerAddress &address);

/** The same for several, with commas between them; a list that has a fault stays empty,
 *  and `which` gets the part that has it. */
const char *broker_list_fault(std::string_view text, std::vector<BrokerAddress> &addresses,
                              std::string_view *which = nullptr);

/** The same for what a person typed: on failure `why` gets the whole sentence. A part
 *  that may hold a password is not repeated in it. */
bool parse_brokers(std::string_view text, std::vector<BrokerAddress> &addresses, std::string &why);

/** Reads a decimal number between two bounds, all of the text. */
bool parse_number(std::string_view text, long least, long most, long &number);

}  // namespace nxapi

#endif

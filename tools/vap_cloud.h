/**
 * The settings of the cloud library in a device folder.
 */
#ifndef TOOLS_VAP_CLOUD_H
#define TOOLS_VAP_CLOUD_H

#include <filesystem>
#include <string>

/** What `vap run` is told of the cloud; empty: as it was. */
struct CloudArguments {
    std::string broker;
    std::filesystem::path ca, cert, key; /**< PEM files, copied into the folder */
};

/** What is wrong with a broker's address; "" for nothing. */
std::string check_broker(const std::string &address);

/** Puts the arguments into root/etc/nxapi.conf of a device folder and the PEM files
 *  beside it, all of them or, when anything is wrong, none. Then tells on standard
 *  error what in these settings keeps the agent from its cloud. Throws
 *  tools::Failure. */
void store_cloud_settings(const std::filesystem::path &folder, const CloudArguments &given);

#endif

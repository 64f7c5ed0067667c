/**
 * What a configuration is in the agent's words: the requests that set it, and the report that
 * tells whether a device has it.
 */
#ifndef CONTROLLER_DESIRED_MEMBERS_H
#define CONTROLLER_DESIRED_MEMBERS_H

#include <cstdint>
#include <optional>

#include "controller/desired/documents.h"

namespace desired {

/** Request of `wlan_config_set`: all slots of both bands with every member, those without an
 *  SSID switched off. Its stamp is 0: the real one comes with the radios, last. */
Json ssids_request(const Json &configuration);

/** Request of `radio_config_set`. */
Json radios_request(const Json &configuration, int64_t stamp);

/** Request of `auto_maint`. */
Json maintenance_request(const Json &configuration, int64_t stamp);

/** A member in which a device is not what it shall be. */
struct Difference {
    enum class Kind {
        drift,       /**< somebody changed it */
        substituted, /**< the device put a value of its own in its place: nothing to be done */
        refused      /**< it was sent again and again, and the device still has another value */
    };
    std::string path;           /**< "/ssids/NAME/BAND/MEMBER", "/radios/BAND/MEMBER", "/reboot";
                                     names are escaped like those of a JSON pointer */
    nlohmann::json wanted = {}; /**< as in the document; of a pass phrase "set" and "other" */
    nlohmann::json found = {};
    Kind kind = Kind::drift;
    bool operator==(const Difference &) const = default;
};
NLOHMANN_JSON_SERIALIZE_ENUM(Difference::Kind, {{Difference::Kind::drift, "drift"},
                                                {Difference::Kind::substituted, "substituted"},
                                                {Difference::Kind::refused, "refused"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Difference, path, wanted, found, kind)

/** Holds an answer of `config_upload` against a canonical configuration. What a device cannot
 *  be, since its radio is a client of another access point, is `substituted`; all else is
 *  `drift`, the power too: what its bounds are only a push shows. Nothing: the report is not
 *  whole. */
std::optional<std::vector<Difference>> compare(const Json &configuration, const Json &report);

}  // namespace desired

#endif

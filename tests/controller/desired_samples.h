/**
 * Documents that the tests begin with.
 */
#ifndef TESTS_CONTROLLER_DESIRED_SAMPLES_H
#define TESTS_CONTROLLER_DESIRED_SAMPLES_H

#include "controller/desired/documents.h"

namespace test {

inline desired::Json sample_configuration() {
    return desired::Json::parse(R"({
        "ssids": [
            {"name": "Staff", "bands": ["2.4", "5"], "security": "wpa2", "cipher": "tkip+aes",
             "passphrase": "welcome-2024", "vlan": 30, "isolate_clients": true,
             "max_clients": 32},
            {"name": "Guests", "bands": ["2.4"], "hidden": true, "security": "open",
             "off_times": "22:00-06:00"}
        ],
        "radios": {
            "2.4": {"channel": "auto", "power_dbm": 15, "min_signal_dbm": -80},
            "5": {"channel": 36, "power_dbm": 20, "min_signal_dbm": -95}
        },
        "reboot": {"at": "04:30", "days": ["sun", "sat"]}
    })");
}

inline desired::Json sample_site() {
    return desired::check_site({{"name", "Harbour"}, {"project_id", 42}, {"cloud_id", "cloud-7"}})
        .document;
}

/** The document with another value at a place. */
inline desired::Json changed(desired::Json document, const std::string &pointer,
                             const desired::Json &value) {
    document[desired::Json::json_pointer(pointer)] = value;
    return document;
}

}  // namespace test

#endif

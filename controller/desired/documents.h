/**
 * The documents in which people say what devices shall be: a site, its configuration, and
 * what differs for one device.
 *
 * A document that passes its check comes back in its canonical form: every member there, in
 * one order, values in one spelling. That form is what is stored, compared and mapped to the
 * agent's members. It holds pass phrases; `without_passphrases` is what readers get.
 *
 * Everything here is pure and may be called from any thread.
 */
#ifndef CONTROLLER_DESIRED_DOCUMENTS_H
#define CONTROLLER_DESIRED_DOCUMENTS_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace desired {

using Json = nlohmann::ordered_json;

/** What is wrong with one field. */
struct Problem {
    std::string pointer; /**< JSON pointer of the field in the document; "" is the whole */
    std::string detail;  /**< a sentence without its subject, "must be …"; repeats no value */
};

struct Checked {
    Json document;                 /**< canonical; to be used only without problems */
    std::vector<Problem> problems; /**< in the order of the document's fields */
    bool ok() const { return problems.empty(); }
};

/** A site: `name`, `project_id` (0 to 9999999) and `cloud_id` (at most 63 bytes) must be there;
 *  `id` is null until somebody gives one, `time_zone` is "+8", `region` 38, policies are
 *  `unbound` and `show` where they are left out. */
Checked check_site(const Json &input);

/** The configuration of a site: `ssids` and both `radios` must be there. `before` is the
 *  canonical document that this one takes the place of, or null: an SSID that needs a pass
 *  phrase and comes without one keeps the one that an SSID of its name has there. */
Checked check_configuration(const Json &input, const Json &before = nullptr);

/** What differs for one device, in the shape of a configuration of which everything but an
 *  SSID's `name` may be left out. `before` as above; `"passphrase_set": false` takes the pass
 *  phrase away, so that the site's holds again. */
Checked check_overrides(const Json &input, const Json &before = nullptr);

/** A site's configuration with the overrides of a device (canonical ones, null: none): SSIDs
 *  by name, radios by band, the schedule as a whole. An SSID of another name is added behind
 *  the others. Problems point into the merged document: an override can be too much for it. */
Checked merge(const Json &configuration, const Json &overrides);

/** What readers get of a configuration or of overrides: every pass phrase null, and beside it
 *  `passphrase_set`. */
Json without_passphrases(Json document);

/** A band as documents name it. */
struct Band {
    const char *name;
    size_t slots; /**< SSIDs at most */
};
inline constexpr Band bands[] = {{"2.4", 8}, {"5", 4}};

/** The SSIDs of a canonical configuration that are on a band, by slot: the n-th that names the
 *  band has its slot n. They point into the document. */
std::vector<const Json *> slots_of(const Json &configuration, const Band &band);

}  // namespace desired

#endif

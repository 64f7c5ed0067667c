/**
 * The fields of the documents: what each takes, and what counts when it is left out.
 */
#ifndef CONTROLLER_DESIRED_FIELDS_H
#define CONTROLLER_DESIRED_FIELDS_H

#include <array>
#include <span>

#include "controller/desired/documents.h"

namespace desired {

/** Takes a value over, in its one spelling; what is wrong with it, or "". */
using Check = std::string (*)(const Json &in, Json &out);

struct Field {
    const char *name;
    Check check;
    const char *otherwise; /**< JSON of what counts when it is left out; null: it must be there */
};

extern const std::span<const Field> site_fields;
extern const std::span<const Field> policy_fields;
extern const std::span<const Field> ssid_fields;
extern const std::array<std::span<const Field>, std::size(bands)> radio_fields;

/** The two forms of a schedule. */
extern const std::span<const Field> weekly_fields;
extern const std::span<const Field> cyclic_fields;

}  // namespace desired

#endif

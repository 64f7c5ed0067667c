/**
 * A document held against a JSON Schema.
 */
#ifndef TOOLS_FLEET_SCHEMA_H
#define TOOLS_FLEET_SCHEMA_H

#include "tools/fleet/located_json.h"

namespace fleet {

/** What is wrong with a document, a sentence with its place each; none: nothing. It knows
 *  of JSON Schema: type, enum, const, minimum, maximum, pattern, properties, required,
 *  additionalProperties, minProperties, items, minItems, maxItems, oneOf and "$ref" to
 *  "#/$defs/...". Of a oneOf of objects that differ in a constant member the one with the
 *  document's constant counts. */
std::vector<std::string> schema_faults(const LocatedJson &document, const Json &schema);

/** The schema of scenarios, config/scenarios/scenario.schema.json. */
const Json &scenario_schema();

}  // namespace fleet

#endif

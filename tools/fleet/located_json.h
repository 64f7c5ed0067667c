/**
 * JSON with comments, and where in its text each value stands.
 */
#ifndef TOOLS_FLEET_LOCATED_JSON_H
#define TOOLS_FLEET_LOCATED_JSON_H

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/cli.h"

namespace fleet {

using Json = nlohmann::ordered_json;

class LocatedJson {
  public:
    /** Parses a text; throws tools::Failure with line and column. `name` is the file's, for
     *  the sentences. */
    LocatedJson(std::string name, const std::string &text);

    const Json &value() const { return value_; }

    /** A sentence about the value at a JSON pointer, "FILE:LINE:COLUMN: POINTER SENTENCE". */
    std::string fault(const std::string &pointer, const std::string &sentence) const;

  private:
    /** "FILE:LINE:COLUMN: ", from 1; columns are bytes. */
    std::string at_place(size_t offset) const;

    std::string name_;
    std::string text_;
    Json value_;
    std::map<std::string, size_t> offsets_; /**< of a value's begin, by its pointer */
};

/** A JSON pointer one step further. */
std::string below(const std::string &pointer, const std::string &key);
std::string below(const std::string &pointer, size_t index);

}  // namespace fleet

#endif

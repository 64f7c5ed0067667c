/**
 * The identity record as a JSON document.
 */
#ifndef NXAPI_IDENTITY_H
#define NXAPI_IDENTITY_H

#include <string>

#include "platform/nxapi.h"

namespace nxapi {

/** The members of the record by their names, in its order; texts end at their
 *  NUL or at the end of the field. The credential is left out of what others may
 *  read. Empty: out of memory. */
enum class Credential { included, left_out };
std::string identity_text(const nx_basic_info &info, Credential credential);

/** Text of a NUL-padded field. */
template <size_t Width>
std::string field_text(const char (&field)[Width]) {
    size_t length = 0;
    while (length < Width && field[length] != '\0') {
        ++length;
    }
    return {field, length};
}

}  // namespace nxapi

#endif

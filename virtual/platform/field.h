/**
 * Texts in the records of the contract.
 */
#ifndef VIRTUAL_PLATFORM_FIELD_H
#define VIRTUAL_PLATFORM_FIELD_H

#include <algorithm>
#include <string_view>

namespace vap {

/** Copies what fits, with its NUL; the rest of the field is zero. */
template <size_t size>
void fill(char (&field)[size], std::string_view text) {
    const size_t copied = text.copy(field, size - 1);
    std::fill(field + copied, field + size, '\0');
}

}  // namespace vap

#endif

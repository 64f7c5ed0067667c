/**
 * The device's model.
 */
#ifndef MODEL_H
#define MODEL_H

#include <cstddef>

/** Model name: "ap.apname" less its last 4 characters, the version ending; empty
 *  when the name is shorter. Cut to `size` bytes and terminated. */
void model_name(char *field, size_t size);

template <size_t N>
void model_name(char (&field)[N]) {
    model_name(field, N);
}

#endif

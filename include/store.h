/**
 * Reading and writing the configuration store, whose numbers are decimal texts.
 */
#ifndef STORE_H
#define STORE_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "nx_limits.h"
#include "platform/apmib.h"

/** A whole value of the store. */
struct StoreValue {
    StoreValue() { text[0] = '\0'; }  // the rest is not worth clearing for each look-up
    char text[APMIB_VALUE_MAX];
    bool found = false;
};

/** Reads a value whole; an absent key is the empty text. */
StoreValue store_get(const char *key);

/** Reads a value into a caller's field, cut to `size` and terminated; true when
 *  the key is present. */
bool store_text(const char *key, char *field, size_t size);

template <size_t N>
bool store_text(const char *key, char (&field)[N]) {
    return store_text(key, field, N);
}

/** A value as an integer, see `text_int`; 0 when the key is absent. */
int store_int(const char *key);

/** Sets a value; nothing is stored when the store refuses it. */
void store_set(const char *key, const char *value);
void store_set_int(const char *key, int value);

/** A key and the text that it is set to. */
struct Setting {
    const char *key;
    const char *value;
};

/** Sets values in their order. */
void store_apply(std::span<const Setting> settings);

/** Reads a factory value like `store_text`. */
bool factory_text(const char *key, char *field, size_t size);

/** The leading decimal number of a text: blanks and a sign are allowed in
 *  front, what follows the digits is ignored, no digits give 0, and a number out
 *  of range gives the nearest 32-bit one. */
int text_int(const char *text);

/** The same for 64 bits, unsigned. */
uint64_t text_uint64(const char *text);

/** Copies a text into a field of `size` bytes, cut and terminated. */
void text_copy(char *field, size_t size, const char *text);

template <size_t N>
void text_copy(char (&field)[N], const char *text) {
    text_copy(field, N, text);
}

#endif

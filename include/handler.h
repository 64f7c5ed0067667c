/**
 * Command handlers and the tables that name them.
 */
#ifndef HANDLER_H
#define HANDLER_H

#include <cjson/cJSON.h>

#include <array>
#include <cstddef>

#include "platform/nxapi.h"

/**
 * A command. Both objects belong to the caller: the handler fills `response`,
 * deletes neither and keeps no reference to them. Runs on the main thread. The
 * result becomes "resp_code": 0 for success, -1 for failure.
 */
using nx_handler = int (*)(cJSON *request, cJSON *response);

/** Turns a request text into a call of the handler in `private_data`, and its
 *  response object into a text; see `nx_command_cb`. */
extern "C" int command_cb_wrapper(void *context, int in_len, const char *in, char **out,
                                  int *out_len, void *private_data);

/** One row of a family table: a command is known by its slot. `callback` null
 *  stands for `command_cb_wrapper`. */
struct FamilyRow {
    size_t slot;
    nx_handler handler;
    nx_command_cb callback = nullptr;
};

/** Fills a family's slots from its rows; slots without a row stay empty. */
template <size_t Slots, size_t Rows>
std::array<nx_slot, Slots> family_slots(const std::array<FamilyRow, Rows> &rows) {
    std::array<nx_slot, Slots> slots{};
    for (const FamilyRow &row : rows) {
        slots[row.slot] = row.callback != nullptr
                              ? nx_slot{row.callback, nullptr}
                              : nx_slot{command_cb_wrapper, reinterpret_cast<void *>(row.handler)};
    }
    return slots;
}

/** True when the rows stand in the order of their slots, each slot once and
 *  inside the table. */
template <size_t Slots, size_t Rows>
constexpr bool family_is_sound(const std::array<FamilyRow, Rows> &rows) {
    for (size_t i = 0; i < Rows; ++i) {
        if (rows[i].slot >= Slots || (i > 0 && rows[i].slot <= rows[i - 1].slot)) {
            return false;
        }
    }
    return true;
}

#endif

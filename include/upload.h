/**
 * Uploading a JSON document.
 */
#ifndef UPLOAD_H
#define UPLOAD_H

#include "json.h"

/**
 * Prints a document and hands it to an upload call of the cloud library, its
 * length without the NUL. `name` is the call's name; it and the caller's function
 * stand in the trace line of a failure.
 * @return 0; -1: out of memory, or the library refused
 */
int document_upload(const Json &document, int (*upload)(const char *text, int length),
                    const char *name, const char *function = __builtin_FUNCTION());

#endif

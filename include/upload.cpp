#include "upload.h"

#include <cstring>

#include "trace.h"

int document_upload(const Json &document, int (*upload)(const char *, int), const char *name,
                    const char *function) {
    const JsonText text = json_print(document);
    if (!text) {
        nx_trace(function, __LINE__, "print cJSON is null!\n");
        return -1;
    }
    if (upload(text.get(), static_cast<int>(strlen(text.get()))) == -1) {
        nx_trace(function, __LINE__, "%s err!\n", name);
        return -1;
    }
    return 0;
}

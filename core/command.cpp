#include <cstring>

#include "handler.h"
#include "json.h"
#include "trace.h"

int command_cb_wrapper(void *, int, const char *in, char **out, int *out_len, void *private_data) {
    if (private_data == nullptr) {
        NX_TRACE("Invalid private data\n");
        return -1;
    }
    const char *text = in != nullptr ? in : "";
    NX_TRACE("##### *in = %s \n", text);
    const Json request(*text != '\0' ? cJSON_Parse(text) : cJSON_CreateObject());
    if (!request) {
        NX_TRACE("Failed to generate request\n");
        return -1;
    }
    const Json response = json_object();
    if (!response) {
        NX_TRACE("Failed to generate reqponse\n");
        return -1;
    }
    const auto handler = reinterpret_cast<nx_handler>(private_data);
    const int result = handler(request.get(), response.get());
    // A response without its verdict says nothing, so it is not sent.
    if (json_add_number(response.get(), "resp_code", result) == nullptr) {
        return -1;
    }
    JsonText printed = json_print(response);
    if (!printed) {
        return -1;
    }
    NX_TRACE("##### *out = %s \n", printed.get());
    *out_len = static_cast<int>(strlen(printed.get()));
    *out = printed.release();
    return 0;
}

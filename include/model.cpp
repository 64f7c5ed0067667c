#include "model.h"

#include <cstring>

#include "store.h"

void model_name(char *field, size_t size) {
    constexpr size_t version_ending = 4;
    StoreValue name = store_get("ap.apname");
    const size_t length = strlen(name.text);
    name.text[length > version_ending ? length - version_ending : 0] = '\0';
    text_copy(field, size, name.text);
}

#include "band.h"

#include <cstdio>

#include "store.h"

Key radio_key(const Band &band, const char *field) {
    Key key;
    snprintf(key.text, sizeof key.text, "%s%s", band.radio_prefix, field);
    return key;
}

Key ssid_key(const char *stem, int slot, const char *field) {
    Key key;
    snprintf(key.text, sizeof key.text, "%s%d.%s", stem, slot, field);
    return key;
}

bool radio_enabled(const Band &band) {
    return store_int(radio_key(band, "enable").text) != 0;
}

#include "platform/apmib.h"

#include <cstdio>
#include <cstring>
#include <exception>

#include "virtual/ap/effect.h"
#include "virtual/ap/machine.h"

using vap::Json;

namespace {

/** A value for the caller; nonzero when the key is present. */
int read_value(vap::Store vap::Machine::*store, const char *key, char *value) {
    *value = '\0';
    const std::shared_ptr<vap::Machine> device = vap::machine();
    if (!device || key == nullptr) {
        return 0;
    }
    const vap::Inside inside;
    const std::optional<std::string> found = ((*device).*store).get(key);
    if (!found) {
        return 0;
    }
    memcpy(value, found->c_str(), found->size() + 1);  // shorter than APMIB_VALUE_MAX
    return 1;
}

int write_value(const char *op, vap::Store vap::Machine::*store, const char *key,
                const char *value) {
    return vap::effect(op, Json::array({vap::text_arg(key), vap::text_arg(value)}), 0, [&] {
        const std::shared_ptr<vap::Machine> device = vap::machine();
        return device && key != nullptr && value != nullptr && ((*device).*store).set(key, value);
    });
}

int save(const char *op, vap::Store vap::Machine::*store) {
    return vap::effect(op, Json::array(), 0, [&] {
        const std::shared_ptr<vap::Machine> device = vap::machine();
        return device && ((*device).*store).commit();
    });
}

/** SSID slot of a BSSID identifier, -1 for an unknown one. */
int bssid_slot(int id) {
    if (id == APMIB_BSSID_SLOT0) {
        return 0;
    }
    if (id >= APMIB_BSSID_SLOT1 && id < APMIB_BSSID_SLOT1 + 4) {
        return id - APMIB_BSSID_SLOT1 + 1;
    }
    if (id >= APMIB_BSSID_SLOT5 && id < APMIB_BSSID_SLOT5 + 3) {
        return id - APMIB_BSSID_SLOT5 + 5;
    }
    return -1;
}

}  // namespace

extern "C" {

int apmib_init(void) {
    try {
        vap::open_from_environment();
    } catch (const std::exception &error) {
        fprintf(stderr, "vap: %s\n", error.what());
        return 0;
    }
    return vap::effect("apmib_init", Json::array(), 0, [] { return 1; });
}

int GetValue(const char *key, char *value) {
    return read_value(&vap::Machine::config, key, value);
}

int SetValue(const char *key, const char *value) {
    return write_value("SetValue", &vap::Machine::config, key, value);
}

int CommitCfm(void) {
    return save("CommitCfm", &vap::Machine::config);
}

int apmib_get(int id, void *value) {
    const int slot = bssid_slot(id);
    if (slot < 0) {
        return 0;
    }
    const Json text = vap::hardware_at("/bssids/" + std::to_string(slot));
    unsigned int bytes[6];
    if (!text.is_string() ||
        sscanf(text.get_ref<const std::string &>().c_str(), "%2x:%2x:%2x:%2x:%2x:%2x", &bytes[0],
               &bytes[1], &bytes[2], &bytes[3], &bytes[4], &bytes[5]) != 6) {
        return 0;
    }
    for (int i = 0; i < 6; ++i) {
        static_cast<unsigned char *>(value)[i] = static_cast<unsigned char>(bytes[i]);
    }
    return 1;
}

int ApmibGetValue(const char *key, char *value) {
    return read_value(&vap::Machine::factory, key, value);
}

int ApmibSetValue(const char *key, const char *value) {
    return write_value("ApmibSetValue", &vap::Machine::factory, key, value);
}

int ApmibCommitCfm(void) {
    return save("ApmibCommitCfm", &vap::Machine::factory);
}

}  // extern "C"

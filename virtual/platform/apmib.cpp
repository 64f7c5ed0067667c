#include "platform/apmib.h"

#include <cstdio>
#include <cstring>
#include <exception>

#include "virtual/device/effect.h"
#include "virtual/device/machine.h"

using vap::Json;

namespace {

/** A value for the caller; nonzero when the key is present. */
int read_value(const char *op, vap::Store vap::Machine::*store, const char *key, char *value) {
    *value = '\0';
    const std::shared_ptr<vap::Machine> device = vap::machine();
    if (!device) {
        return 0;
    }
    if (const std::optional<long> fault = device->due_fault(op, 0)) {
        return static_cast<int>(*fault);
    }
    if (key == nullptr) {
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
    return read_value("GetValue", &vap::Machine::config, key, value);
}

int SetValue(const char *key, const char *value) {
    return write_value("SetValue", &vap::Machine::config, key, value);
}

int CommitCfm(void) {
    return save("CommitCfm", &vap::Machine::config);
}

int apmib_get(int id, void *value) {
    if (const std::optional<long> fault = vap::due_fault("apmib_get", 0)) {
        return static_cast<int>(*fault);
    }
    return vap::bssid_of(id, static_cast<uint8_t *>(value));
}

int ApmibGetValue(const char *key, char *value) {
    return read_value("ApmibGetValue", &vap::Machine::factory, key, value);
}

int ApmibSetValue(const char *key, const char *value) {
    return write_value("ApmibSetValue", &vap::Machine::factory, key, value);
}

int ApmibCommitCfm(void) {
    return save("ApmibCommitCfm", &vap::Machine::factory);
}

}  // extern "C"

/**
 * A device on a real broker, inside the test's process: the test is its main
 * thread.
 */
#ifndef TESTS_NXAPI_CLOUD_DEVICE_H
#define TESTS_NXAPI_CLOUD_DEVICE_H

#include <poll.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "nxapi/client.h"
#include "nxapi/topics.h"
#include "tests/support/broker.h"

namespace test {

inline nxapi::Settings settings_for(const Broker &broker) {
    nxapi::Settings settings;
    settings.brokers = {{"127.0.0.1", broker.port(), false}};
    settings.retry_ms = 20;
    return settings;
}

class CloudDevice {
  public:
    CloudDevice(const Broker &broker, const std::string &serial)
        : CloudDevice(settings_for(broker), serial) {}

    CloudDevice(const nxapi::Settings &settings, const std::string &serial)
        : client(settings, registry) {
        registry.set_serial = [](void *, int length, const char *text, void *) {
            assigned().emplace_back(text, static_cast<size_t>(length));
            return 0;
        };
        info.set_serial = registry.set_serial;
        snprintf(info.serial, sizeof(info.serial), "%s", serial.c_str());
        snprintf(info.model, sizeof(info.model), "ZX-A5");
        EXPECT_TRUE(client.start());
        EXPECT_TRUE(client.introduce(info));
    }

    /** Serves a slot of the cloud family. */
    void serve(size_t slot, nx_command_cb callback, void *private_data = nullptr) {
        registry.tables[0][slot] = {callback, private_data};
    }

    /** What the main thread of an agent does when its descriptor is ready. */
    void work(int wait_ms = 0) {
        pollfd ready{client.fd(), POLLIN, 0};
        if (poll(&ready, 1, wait_ms) > 0) {
            client.dispatch();
        }
    }

    /** Serial numbers that the cloud assigned to devices of this process. */
    static std::vector<std::string> &assigned() {
        static std::vector<std::string> serials;
        return serials;
    }

    nxapi::Registry registry;
    nx_basic_info info{};
    nxapi::Client client;
};

/** Answers with the request between angle brackets, its length counting the NUL. */
inline int echo_command(void *, int in_len, const char *in, char **out, int *out_len, void *) {
    const std::string text = "<" + std::string(in, static_cast<size_t>(in_len)) + ">";
    *out = static_cast<char *>(cJSON_malloc(text.size() + 1));
    std::memcpy(*out, text.c_str(), text.size() + 1);
    *out_len = static_cast<int>(text.size() + 1);
    return 0;
}

/** Has no response. */
inline int refusing_command(void *, int, const char *, char **, int *, void *) {
    return -1;
}

}  // namespace test

#endif

/**
 * An access point with something in every report: SSIDs of each kind, clients on
 * several of them, a hidden neighbour, and a 5 GHz radio that is the client of
 * another access point.
 */
#ifndef TESTS_REPORT_RICH_DEVICE_H
#define TESTS_REPORT_RICH_DEVICE_H

#include "tests/support/support.h"

namespace test {

/** A station of hardware.json, associated `online` seconds before now. */
struct StationSpec {
    const char *mac;
    int band = 24;
    int ssid = 0;
    int online = 0;
    uint32_t up = 0; /**< bytes */
    uint32_t down = 0;
    const char *ip = "192.168.1.1";
    int os = 0;
    bool in_arp = true;
    int up_rate = 0; /**< bytes a second */
    int down_rate = 0;
};

class ReportDevice : public Device {
  protected:
    /** The agent remembers the stations of the report before; the process does, for
     *  all of its devices. */
    ReportDevice();

    void set_all(const std::vector<std::pair<std::string, std::string>> &values);

    /** Puts stations on the air, in this order. */
    static void associate(const std::vector<StationSpec> &stations);

    /** Runs a builder on a new object or array; what it made, and its result. */
    struct Built {
        int result;
        vap::Json json;
        std::string text;
    };
    template <typename Builder>
    static Built build(Builder builder, bool array = true) {
        cJSON *target = array ? cJSON_CreateArray() : cJSON_CreateObject();
        const int result = builder(target);
        char *printed = cJSON_Print(target);
        Built built{result, vap::Json::parse(printed), printed};
        cJSON_free(printed);
        cJSON_Delete(target);
        return built;
    }
};

class RichDevice : public ReportDevice {
  protected:
    RichDevice();

    /** Compares a text with a file of golden/, character for character. */
    static void expect_golden(const std::string &name, const std::string &text);
};

}  // namespace test

#endif

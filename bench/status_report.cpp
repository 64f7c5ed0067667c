/* What a status report costs beyond building and printing its document. */
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "bench/ratio.h"
#include "json.h"
#include "report/uploads.h"
#include "virtual/ap/vap.h"

namespace {

constexpr double limit = 1.3;

/** Stations of both radios, spread over all their SSIDs, each in the ARP table. */
vap::Json crowd(int count) {
    vap::Json stations = vap::Json::object();
    for (int i = 0; i < 2 * count; ++i) {
        const bool fast = i >= count;
        char mac[18];
        char ip[16];
        snprintf(mac, sizeof mac, "02:00:00:00:%02x:%02x", fast ? 1 : 0, i % count);
        snprintf(ip, sizeof ip, "10.0.%d.%d", fast ? 1 : 0, i % count);
        stations[mac] = {{"band", fast ? 5 : 24},
                         {"ssid", i % (fast ? 4 : 8)},
                         {"ip", ip},
                         {"signal", -40 - i % 40},
                         {"os", i % 14},
                         {"since", -1000 - i},
                         {"up", {{"bytes", 1000 * i}, {"rate", 1234 + i}}},
                         {"down", {{"bytes", 9000 * i}, {"rate", 98765 + i}}}};
    }
    return stations;
}

class Device {
  public:
    explicit Device(int stations) {
        std::string pattern = (std::filesystem::temp_directory_path() / "norvex-XXXXXX").string();
        folder_ = mkdtemp(pattern.data());
        vap::create_device(folder_ / "ap", {.serial = "NXB0000000001"});
        vap::open_device(folder_ / "ap", {.time = vap::Time::manual, .restarts_process = false});
        // Local discovery is another program, whose answer is not the report's cost.
        vap::patch_hardware({{"stations", crowd(stations)}, {"discovery", "absent"}});
        vap::config_set("wl.identifyOS_en", "1");
        for (int slot = 0; slot < 8; ++slot) {
            for (const char *stem : {"wl2g.ssid", "wl5g.ssid"}) {
                vap::config_set(stem + std::to_string(slot) + ".enable", "1");
            }
        }
    }
    ~Device() {
        vap::close_device();
        std::filesystem::remove_all(folder_);
    }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

  private:
    std::filesystem::path folder_;
};

/** The report as the cloud gets it. */
JsonText report() {
    const Json response = json_object();
    status_upload(nullptr, response.get());
    return json_print(response);
}

/** Builds a tree anew, member by member. */
cJSON *rebuild(const cJSON *tree) {
    if (cJSON_IsString(tree)) {
        return cJSON_CreateString(tree->valuestring);
    }
    if (cJSON_IsNumber(tree)) {
        return cJSON_CreateNumber(tree->valuedouble);
    }
    const bool is_array = cJSON_IsArray(tree) != 0;
    cJSON *copy = is_array ? cJSON_CreateArray() : cJSON_CreateObject();
    const cJSON *child = nullptr;
    cJSON_ArrayForEach(child, tree) {
        if (is_array) {
            cJSON_AddItemToArray(copy, rebuild(child));
        } else {
            cJSON_AddItemToObject(copy, child->string, rebuild(child));
        }
    }
    return copy;
}

struct Result {
    bench::Medians medians;
    size_t bytes;
};

Result measure(int stations) {
    const Device device(stations);
    const JsonText document = report();
    const Json tree(cJSON_Parse(document.get()));
    const auto build_and_print = [&] { json_print(Json(rebuild(tree.get()))); };
    // A second between two reports: each looks its stations up among those before.
    const auto one_second = [] { vap::advance(1); };
    return {bench::measure([] { report(); }, build_and_print, one_second), strlen(document.get())};
}

}  // namespace

int main() {
    const Result few = measure(16);
    const Result many = measure(128);
    for (const auto &[stations, result] : {std::pair(16, few), std::pair(128, many)}) {
        printf("status_upload, %3d stations on each radio: %.2f times cJSON alone (limit %.1f)\n",
               stations, result.medians.ratio(), limit);
    }
    printf("from 16 to 128: the document grows %.1f times, the time %.1f times\n",
           static_cast<double>(many.bytes) / static_cast<double>(few.bytes),
           many.medians.work / few.medians.work);
    return many.medians.ratio() > limit ? 1 : 0;
}

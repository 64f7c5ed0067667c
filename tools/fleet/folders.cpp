#include "tools/fleet/folders.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>

#include "nxapi/settings.h"
#include "tools/text.h"
#include "virtual/folder/files.h"
#include "virtual/folder/hardware.h"
#include "virtual/folder/store.h"
#include "virtual/platform/image.h"
#include "virtual/vap.h"

namespace fleet {
namespace {

Json station(uint32_t number) {
    return {{"band", number % 3 == 0 ? 24 : 5},
            {"ip", "192.168.188." + std::to_string(100 + number % 150)},
            {"signal", -45 - static_cast<int>(number % 30)},
            {"os", number % 14},
            {"down", {{"bytes", 0}, {"rate", 250'000}}},
            {"up", {{"bytes", 0}, {"rate", 12'000}}}};
}

void write(const std::filesystem::path &file, const std::string &text) {
    if (!vap::make_folders(file.parent_path()) || !vap::replace_file(file, text)) {
        throw tools::Failure(tools::cannot("write", file));
    }
}

}  // namespace

std::filesystem::path Folders::log_of(const std::string &serial) const {
    return of(serial) / "agent.log";
}

// A power cut ends the agent, not the machine: nothing here waits for the disk.
void Folders::patch(const std::string &serial, const Json &change) const {
    vap::Hardware(of(serial) / "hardware.json", vap::Lasting::process).patch(change);
}

void Folders::set_config(const std::string &serial, const Json &config) const {
    if (config.empty()) {
        return;
    }
    vap::Store store(of(serial) / "config", vap::Lasting::process);
    for (const auto &[key, value] : config.items()) {
        store.set(key, value.get<std::string>());
    }
    if (!store.commit()) {
        throw tools::Failure(tools::cannot("change", of(serial) / "config"));
    }
}

bool Folders::make(const Planned &device, const Group &group) const {
    const bool there = std::filesystem::exists(of(device.serial) / "hardware.json");
    if (!there) {
        vap::create_device(of(device.serial), {.serial = device.serial, .model = group.model});
    }
    return there;
}

void Folders::prepare(const Planned &device, const Group &group, const std::string &brokers) const {
    const bool was_there = make(device, group);
    set_config(device.serial, group.config);
    if (was_there && group.stations.most > 0) {
        patch(device.serial, {{"stations", nullptr}});
    }
    Json change = group.hardware;
    for (const uint32_t number : device.stations) {
        change["stations"][station_mac(number)] = station(number);
    }
    if (!change.empty()) {
        patch(device.serial, change);
    }
    std::string settings = "broker=" + brokers + "\n";
    for (const auto &[key, value] : group.cloud.items()) {
        settings += key + "=" + value.get<std::string>() + "\n";
    }
    write((of(device.serial) / "root").concat(nxapi::settings_path), settings);
}

void Folders::change(const std::string &serial, const Step &step) const {
    if (!step.config.is_null()) {
        set_config(serial, step.config);
    }
    if (!step.hardware.is_null()) {
        patch(serial, step.hardware);
    }
    if (step.image) {
        write(of(serial) / "root/tmp/image",
              vap::make_image(2, step.image->size, step.image->model));
    }
}

void Folders::join(const std::string &serial, uint32_t number) const {
    patch(serial, {{"stations", {{station_mac(number), station(number)}}}});
}

void Folders::leave(const std::string &serial, uint32_t number) const {
    patch(serial, {{"stations", {{station_mac(number), nullptr}}}});
}

size_t Folders::missing(const std::string &serial, const Json &config) const {
    const auto values = vap::Store(of(serial) / "config").committed().value_or(vap::Values());
    size_t missing = 0;
    for (const auto &[key, value] : config.items()) {
        const auto found = values.find(key);
        missing += found == values.end() || found->second != value.get<std::string>() ? 1U : 0U;
    }
    return missing;
}

std::string Folders::last_line(const std::string &serial) const {
    std::ifstream log(log_of(serial));
    constexpr std::streamoff enough = 2048;
    log.seekg(0, std::ios::end);
    const auto size = static_cast<std::streamoff>(log.tellg());
    log.seekg(std::max<std::streamoff>(size - enough, 0));
    std::string last;
    for (std::string line; std::getline(log, line);) {
        if (!line.empty()) {
            last = line;
        }
    }
    return tools::shown(last.substr(0, 300));
}

}  // namespace fleet

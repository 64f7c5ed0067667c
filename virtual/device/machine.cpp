#include "virtual/device/machine.h"

#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#include "virtual/folder/lock.h"

namespace vap {
namespace {

std::mutex current_mutex;

// Never destroyed: the agent may `exit` while its threads still use the device.
std::shared_ptr<Machine> &current = *new std::shared_ptr<Machine>;

/** Clocks are kept for ever: a thread may sleep in one that is retired. */
Clock &new_clock(const Options &options) {
    static auto &clocks = *new std::vector<std::unique_ptr<Clock>>;
    return *clocks.emplace_back(std::make_unique<Clock>(options));
}

std::string thread_name(const Clock &clock) {
    if (gettid() == getpid() || clock.on_main_thread()) {
        return "main";
    }
    char name[17] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

/** A device under a manual clock is a test's: nobody misses it after a crash. */
Lasting lasting(const Options &options) {
    return options.time == Time::manual ? Lasting::process : Lasting::machine;
}

Machine &need() {
    const std::shared_ptr<Machine> device = machine();
    if (!device) {
        throw std::runtime_error("no virtual access point is open");
    }
    return *device;
}

double seconds(int64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

}  // namespace

Machine::Machine(const std::filesystem::path &where, const Options &how)
    : folder(std::filesystem::canonical(where)),
      options(how),
      config(folder / "config", lasting(how)),
      factory(folder / "factory", lasting(how)),
      hardware(folder / "hardware.json", lasting(how)),
      journal(folder),
      clock(new_clock(how)) {
    if (!(how.speed > 0) || !std::isfinite(how.speed)) {
        throw std::runtime_error("a device's speed must be greater than 0");
    }
}

std::shared_ptr<Machine> machine() {
    const std::lock_guard lock(current_mutex);
    return current;
}

void open_device(const std::filesystem::path &folder, const Options &options) {
    const Inside inside;
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        throw std::runtime_error("no device folder " + folder.string());
    }
    close_to_others(folder);
    auto device = std::make_shared<Machine>(folder, options);
    if (machine()) {
        close_device();
    }
    {
        const std::lock_guard lock(current_mutex);
        current = std::move(device);
    }
    try {
        start_hardware();
    } catch (const std::runtime_error &) {
        close_device();
        throw;
    }
}

void open_from_environment() {
    if (machine()) {
        return;
    }
    const char *folder = getenv("VAP_DEVICE");
    if (folder == nullptr || *folder == '\0') {
        throw std::runtime_error("no device: VAP_DEVICE names no device folder");
    }
    Options options;
    if (const char *speed = getenv("VAP_SPEED"); speed != nullptr && *speed != '\0') {
        char *end = nullptr;
        options.speed = strtod(speed, &end);
        if (*end != '\0') {
            throw std::runtime_error("VAP_SPEED is no number: " + std::string(speed));
        }
    }
    static const RunLock &run = *new RunLock(folder);  // as long as the process lives
    (void)run;
    umask(S_IRWXG | S_IRWXO);  // what the agent leaves is its owner's alone, too
    open_device(folder, options);
    setvbuf(stdout, nullptr, _IOLBF, 0);  // trace lines reach a pipe as they are made
    if (getenv("VAP_TRACE") != nullptr) {
        machine()->config.show("nx.debug", "1");
    }
}

void close_device() {
    const std::shared_ptr<Machine> device = machine();
    if (!device) {
        return;
    }
    device->clock.retire();
    for (;;) {
        std::unique_lock lock(device->closing_mutex);
        if (device->closing.empty()) {
            break;
        }
        const std::function<void()> act = std::move(device->closing.back());
        device->closing.pop_back();
        lock.unlock();
        act();
    }
    const std::lock_guard lock(current_mutex);
    current.reset();
}

void on_close(std::function<void()> act) {
    Machine &device = need();
    const std::lock_guard lock(device.closing_mutex);
    device.closing.push_back(std::move(act));
}

bool start_thread(std::thread &thread, const char *name, std::function<void()> body) {
    try {
        if (due_fault("thread", 0)) {
            throw std::system_error(EAGAIN, std::generic_category());
        }
        thread = std::thread([name, body = std::move(body)] {
            const Inside inside;
            prctl(PR_SET_NAME, name);
            body();
        });
        return true;
    } catch (const std::system_error &error) {
        fprintf(stderr, "vap: no thread \"%s\": %s\n", name, error.what());
        return false;
    }
}

std::filesystem::path folder() {
    return need().folder;
}

std::filesystem::path host_path(const std::string &device_path) {
    return need().folder / "root" / std::filesystem::path(device_path).relative_path();
}

void advance(double s) {
    need().clock.advance_ns(std::llround(s * 1e9));
}
void settle() {
    need().clock.advance_ns(0);
}
void begin_work() {
    need().clock.begin_work();
}
void end_work() {
    need().clock.end_work();
}

double uptime() {
    const std::shared_ptr<Machine> device = machine();
    return device ? seconds(device->clock.uptime_ns()) : 0;
}

double now() {
    const std::shared_ptr<Machine> device = machine();
    return device ? seconds(device->clock.now_ns()) : 0;
}

std::optional<std::string> config_get(const std::string &key) {
    return need().config.get(key);
}

void config_set(const std::string &key, const std::string &value) {
    if (!need().config.set_now(key, value)) {
        throw std::runtime_error("the store refuses this value of " + key);
    }
}

Json hardware() {
    return need().hardware.whole();
}

void patch_hardware(const Json &patch) {
    need().hardware.patch(patch);
    hardware_changed();
}

Json hardware_description() {
    const std::shared_ptr<Machine> device = machine();
    return device ? device->hardware.whole() : Json();
}

uint32_t hardware_generation() {
    const std::shared_ptr<Machine> device = machine();
    return device ? device->hardware.generation() : 0;
}

std::vector<Json> journal() {
    return need().journal.lines();
}

void clear_journal() {
    need().journal.clear();
}

void record(const char *op, Json args, Json result) {
    const std::shared_ptr<Machine> device = machine();
    if (!device) {
        return;
    }
    const Inside inside;
    const double time = std::round(seconds(device->clock.uptime_ns()) * 1e3) / 1e3;
    Json line;
    line["time"] = time;
    line["thread"] = thread_name(device->clock);
    line["op"] = op;
    line["args"] = std::move(args);
    line["result"] = std::move(result);
    device->journal.append(line);
}

void note(const std::string &op, Json args, Json result) {
    record(op.c_str(), std::move(args), std::move(result));
}

void fail(const std::string &op, int nth, int times, std::optional<long> result) {
    need().faults.plan(op, nth, times, result);
}

bool forget_faults() {
    return need().faults.forget();
}

std::optional<long> Machine::due_fault(const char *op, long failure) {
    const Inside inside;
    if (faults.behind(hardware.generation())) {
        faults.follow(hardware.at("/faults"));
    }
    return faults.due(op, failure);
}

std::optional<long> due_fault(const char *op, long failure) {
    const std::shared_ptr<Machine> device = machine();
    return device ? device->due_fault(op, failure) : std::nullopt;
}

Json bytes_arg(const void *data, size_t length) {
    if (data == nullptr) {
        return nullptr;
    }
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const char c : std::string_view(static_cast<const char *>(data), length)) {
        const auto byte = static_cast<unsigned char>(c);
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

Json text_arg(const char *text) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::string_view view(text);
    return valid_text(view) ? Json(std::string(view)) : bytes_arg(text, view.size());
}

}  // namespace vap

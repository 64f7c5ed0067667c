#include "tests/support/support.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "trace.h"

namespace test {
namespace {

std::string argument_text(const vap::Json &argument) {
    return argument.is_string() ? argument.get<std::string>() : argument.dump();
}

std::string effect_text(const vap::Json &line) {
    std::string text = line.at("op").get<std::string>();
    for (const vap::Json &argument : line.at("args")) {
        text += " " + argument_text(argument);
    }
    return text;
}

std::string file_text(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

Device::Device(const vap::NewDevice &kind) {
    vap::create_device(folder() / "ap", kind);
    vap::open_device(folder() / "ap", {.time = vap::Time::manual, .restarts_process = false});
    nxapi::begin_local([this](const nxapi::Upload &upload) {
        vap::note(upload.call, vap::Json::array({upload.data}));
        const std::lock_guard lock(mutex_);
        uploads_.push_back(upload);
        if (until_refusal_ > 0 && --until_refusal_ == 0) {
            return -1;
        }
        const auto refused =
            std::ranges::find(refused_, upload.call, &std::pair<std::string, int>::first);
        return refused == refused_.end() ? 0 : refused->second;
    });
}

Device::~Device() {
    vap::close_device();
    nxapi::end_local();
}

std::string Device::call(nx_handler handler, const std::string &request) {
    char *text = nullptr;
    int length = 0;
    if (command_cb_wrapper(nullptr, static_cast<int>(request.size()), request.c_str(), &text,
                           &length, reinterpret_cast<void *>(handler)) != 0) {
        return "";
    }
    std::string response(text, static_cast<size_t>(length));
    cJSON_free(text);
    return response;
}

vap::Json Device::answer(nx_handler handler, const std::string &request) {
    return vap::Json::parse(call(handler, request), nullptr, false);
}

std::string Device::get(const std::string &key) {
    return vap::config_get(key).value_or("(absent)");
}

std::vector<std::string> Device::effects() {
    std::vector<std::string> lines;
    std::ranges::transform(vap::journal(), std::back_inserter(lines), effect_text);
    vap::clear_journal();
    return lines;
}

std::vector<std::string> Device::effects(const std::vector<std::string> &operations) {
    std::vector<std::string> lines = effects();
    std::erase_if(lines, [&](const std::string &line) {
        return std::ranges::find(operations, line.substr(0, line.find(' '))) == operations.end();
    });
    return lines;
}

std::vector<nxapi::Upload> Device::uploads(const std::string &name) {
    const std::lock_guard lock(mutex_);
    std::vector<nxapi::Upload> found;
    std::ranges::copy_if(uploads_, std::back_inserter(found),
                         [&](const nxapi::Upload &upload) { return upload.call == name; });
    return found;
}

void Device::refuse(const std::string &name, int result) {
    const std::lock_guard lock(mutex_);
    refused_.emplace_back(name, result);
}

void Device::write_file(const std::string &device_path, const std::string &text) {
    const std::filesystem::path path = vap::folder() / "root" / device_path.substr(1);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string Device::read_file(const std::string &device_path) {
    return file_text(vap::folder() / "root" / device_path.substr(1));
}

std::string Device::output_of(const std::function<void()> &act, bool traced) {
    const int before = nx_debug_state;
    nx_debug_state = traced ? 1 : 0;
    ::testing::internal::CaptureStdout();
    act();
    fflush(stdout);
    nx_debug_state = before;
    return ::testing::internal::GetCapturedStdout();
}

namespace {

std::atomic<int> failing_allocation;
std::atomic<int> allocations;
std::atomic<int> live_allocations;

void *counted_malloc(size_t size) {
    if (++allocations == failing_allocation) {
        return nullptr;
    }
    ++live_allocations;
    return std::malloc(size);
}

void counted_free(void *memory) {
    if (memory != nullptr) {
        --live_allocations;
    }
    std::free(memory);
}

}  // namespace

JsonAllocations::JsonAllocations(int failing) {
    allocations = 0;
    live_allocations = 0;
    failing_allocation = failing;
    cJSON_Hooks hooks{counted_malloc, counted_free};
    cJSON_InitHooks(&hooks);
}

JsonAllocations::~JsonAllocations() {
    cJSON_InitHooks(nullptr);
}

int JsonAllocations::made() {
    return allocations;
}
int JsonAllocations::live() {
    return live_allocations;
}

int fail_each_allocation(const std::function<void()> &act,
                         const std::function<void(bool passed)> &check) {
    for (int failing = 1;; ++failing) {
        SCOPED_TRACE("allocation " + std::to_string(failing));
        const JsonAllocations memory(failing);
        act();
        const bool passed = JsonAllocations::made() < failing;
        EXPECT_EQ(JsonAllocations::live(), 0);
        check(passed);
        if (passed) {
            return failing;
        }
    }
}

}  // namespace test

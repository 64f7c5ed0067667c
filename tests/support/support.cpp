#include "tests/support/support.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "trace.h"

namespace test {
namespace {

std::string effect_text(const vap::Json &line) {
    std::string text = line.at("op").get<std::string>();
    for (const vap::Json &argument : line.at("args")) {
        text += " " + (argument.is_string() ? argument.get<std::string>() : argument.dump());
    }
    return text;
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
        constexpr int success = 7;  // as any number but -1 is
        return refused == refused_.end() ? success : refused->second;
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

int Device::parse(int (*parser)(const cJSON *), const std::string &text) {
    cJSON *parsed = cJSON_Parse(text.c_str());
    const int result = parser(parsed);
    cJSON_Delete(parsed);
    return result;
}

void Device::manage_locally() {
    set("nx.manage.en", "1");
    set("nx.manage.mode", "2");
}

std::string Device::get(const std::string &key) {
    return vap::config_get(key).value_or("(absent)");
}

Lines Device::effects() {
    Lines lines;
    std::ranges::transform(vap::journal(), std::back_inserter(lines), effect_text);
    vap::clear_journal();
    return lines;
}

Lines Device::effects(const Lines &operations) {
    Lines lines = effects();
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
    std::ifstream in(vap::folder() / "root" / device_path.substr(1), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
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

void Device::expect_members_or_failure(nx_handler handler, const std::string &request,
                                       const Lines &members) {
    std::string response;
    size_t failures = 0;
    fail_each_allocation([&] { response = call(handler, request); },
                         [&](bool) {
                             const bool whole =
                                 std::ranges::all_of(members, [&](const std::string &member) {
                                     return response.find("\t\"" + member + "\"") != response.npos;
                                 });
                             const bool failed = response.ends_with("-1\n}");
                             EXPECT_TRUE(response.empty() || whole != failed) << response;
                             failures += failed ? 1 : 0;
                         });
    EXPECT_GE(failures, members.size());
}

void Device::expect_whole_or_nothing(const std::function<int()> &act, const std::string &upload) {
    int result = 0;
    const size_t before = uploads(upload).size();
    const int runs =
        fail_each_allocation([&] { result = act(); },
                             [&](bool passed) {
                                 EXPECT_EQ(result, passed ? 0 : -1);
                                 EXPECT_EQ(uploads(upload).size(), before + (passed ? 1 : 0));
                             });
    EXPECT_GT(runs, 5);
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

#include "virtual/device/caught.h"

#include <link.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

namespace vap {
namespace {

struct Range {
    uintptr_t begin;
    uintptr_t end;
    bool holds(uintptr_t address) const { return address >= begin && address < end; }
};

/** Parts of the program in memory: it is the first object of the process. */
int add_program(dl_phdr_info *object, size_t, void *data) {
    auto &parts = *static_cast<std::vector<Range> *>(data);
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        const auto &part = object->dlpi_phdr[i];
        if (part.p_type == PT_LOAD) {
            const uintptr_t begin = object->dlpi_addr + part.p_vaddr;
            parts.push_back({begin, begin + part.p_memsz});
        }
    }
    return 1;  // no further object
}

}  // namespace

bool from_agent(const void *return_address) {
    static const auto &program = *[] {
        auto *parts = new std::vector<Range>;
        dl_iterate_phdr(add_program, parts);
        return parts;
    }();
    const auto address = reinterpret_cast<uintptr_t>(return_address);
    return std::ranges::any_of(program, [&](const Range &part) { return part.holds(address); });
}

std::shared_ptr<Machine> caught() {
    return inside() ? nullptr : machine();
}

std::shared_ptr<Machine> caught(const char *path) {
    return path != nullptr && is_device_path(path) ? caught() : nullptr;
}

bool fails(const char *op, const void *return_address) {
    if (inside() || !machine() || !from_agent(return_address)) {
        return false;
    }
    const std::optional<long> fault = due_fault(op, EIO);
    if (fault) {
        errno = static_cast<int>(*fault);
    }
    return fault.has_value();
}

}  // namespace vap

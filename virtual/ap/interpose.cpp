#include "virtual/ap/interpose.h"

#include <link.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

namespace vap {
namespace {

struct Range {
    uintptr_t begin;
    uintptr_t end;
    bool holds(uintptr_t address) const { return address >= begin && address < end; }
};

struct Ranges {
    std::vector<Range> program;
    std::vector<Range> sanitizer;
    std::string sanitizer_name;
};

int add_object(dl_phdr_info *object, size_t, void *data) {
    auto &ranges = *static_cast<Ranges *>(data);
    std::vector<Range> *list = nullptr;
    if (object->dlpi_name == nullptr || *object->dlpi_name == '\0') {
        list = ranges.program.empty() ? &ranges.program : nullptr;  // later: the vDSO
    } else if (strstr(object->dlpi_name, "/libasan.so") != nullptr ||
               strstr(object->dlpi_name, "/libtsan.so") != nullptr ||
               strstr(object->dlpi_name, "/libubsan.so") != nullptr) {
        list = &ranges.sanitizer;
        if (ranges.sanitizer_name.empty()) {
            ranges.sanitizer_name = object->dlpi_name;
        }
    }
    for (int i = 0; list != nullptr && i < object->dlpi_phnum; ++i) {
        const auto &part = object->dlpi_phdr[i];
        if (part.p_type == PT_LOAD) {
            const uintptr_t begin = object->dlpi_addr + part.p_vaddr;
            list->push_back({begin, begin + part.p_memsz});
        }
    }
    return 0;
}

const Ranges &ranges() {
    static const Ranges &all = *[] {
        const Inside inside;
        auto *found = new Ranges;
        dl_iterate_phdr(add_object, found);
        return found;
    }();
    return all;
}

bool holds(const std::vector<Range> &list, const void *address) {
    return std::ranges::any_of(
        list, [&](const Range &r) { return r.holds(reinterpret_cast<uintptr_t>(address)); });
}

}  // namespace

bool from_agent(const void *return_address) {
    return holds(ranges().program, return_address) || holds(ranges().sanitizer, return_address);
}

bool from_sanitizer(const void *return_address) {
    return holds(ranges().sanitizer, return_address);
}

void *sanitizer_library() {
    const std::string &name = ranges().sanitizer_name;
    return name.empty() ? nullptr : dlopen(name.c_str(), RTLD_NOLOAD | RTLD_LAZY);
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

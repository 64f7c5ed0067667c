#include "virtual/folder/store.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <utility>

#include "virtual/folder/lock.h"

namespace vap {
namespace {

/** What a file holds, or the sentence that says why it cannot be used. */
std::optional<Values> load(const std::filesystem::path &file, std::string &problem) {
    const std::optional<std::string> text = read_file(file);
    if (!text) {
        problem = "cannot read " + file.string() + ": " + strerror(errno);
        return std::nullopt;
    }
    std::optional<Values> values = parse_values(*text, &problem);
    if (!values) {
        problem = file.string() + ", " + problem;
    }
    return values;
}

std::optional<std::string> value_of(const Values &values, std::string_view key) {
    const auto found = values.find(key);
    return found == values.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

bool Lookout::due() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);  // every platform call comes by
    const auto now_ms = static_cast<uint32_t>(int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000);
    if (now_ms - last_ms_.load(std::memory_order_relaxed) < 50) {
        return false;
    }
    last_ms_.store(now_ms, std::memory_order_relaxed);
    return true;
}

bool Lookout::sees_change(bool now) {
    if (!now && !due()) {
        return false;
    }
    const FileStamp stamp = file_stamp(file_);
    return std::exchange(stamp_, stamp) != stamp;
}

Store::Store(std::filesystem::path file, Lasting lasting)
    : file_(std::move(file)), lasting_(lasting), lookout_(file_) {
    std::string problem;
    std::optional<Values> values = load(file_, problem);
    if (!values) {
        throw std::runtime_error(problem);
    }
    committed_ = *std::move(values);
}

void Store::refresh(bool now) {
    if (!lookout_.sees_change(now)) {
        return;
    }
    std::string problem;
    std::optional<Values> values = load(file_, problem);
    broken_ = !values;
    if (broken_) {
        fprintf(stderr, "vap: %s; the values read before stay in use\n", problem.c_str());
        return;
    }
    // A value that somebody changed on disk is newer than the pending one.
    std::erase_if(pending_, [&](const auto &row) {
        return value_of(*values, row.first) != value_of(committed_, row.first);
    });
    committed_ = *std::move(values);
}

std::optional<std::string> Store::get(std::string_view key) {
    const std::lock_guard lock(mutex_);
    refresh(false);
    for (const Values *values : {&pending_, &shown_, &committed_}) {
        if (std::optional<std::string> value = value_of(*values, key)) {
            return value;
        }
    }
    return std::nullopt;
}

bool Store::set(std::string_view key, std::string_view value) {
    if (!valid_key(key) || !valid_value(value)) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    refresh(true);  // what stands there now is older than this value
    pending_.insert_or_assign(std::string(key), value);
    return true;
}

bool Store::save(Values values) {
    if (!replace_file(file_, print_values(values), lasting_)) {
        fprintf(stderr, "vap: cannot write %s: %s\n", file_.c_str(), strerror(errno));
        return false;
    }
    committed_ = std::move(values);
    lookout_.look();
    broken_ = false;
    return true;
}

bool Store::merge(const Values &changes) {
    const FolderLock folder(file_.parent_path());
    if (!folder.held()) {
        return false;
    }
    refresh(true);
    if (broken_) {
        return false;
    }
    Values merged = committed_;
    for (const auto &[key, value] : changes) {
        merged.insert_or_assign(key, value);
    }
    return save(std::move(merged));
}

bool Store::commit() {
    const std::lock_guard lock(mutex_);
    if (!merge(pending_)) {
        return false;
    }
    pending_.clear();
    return true;
}

bool Store::set_now(std::string_view key, std::string_view value) {
    if (!valid_key(key) || !valid_value(value)) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    if (!merge({{std::string(key), std::string(value)}})) {
        return false;
    }
    pending_.erase(std::string(key));
    return true;
}

void Store::show(std::string_view key, std::string_view value) {
    const std::lock_guard lock(mutex_);
    shown_.insert_or_assign(std::string(key), value);
}

std::optional<Values> Store::committed() {
    const std::lock_guard lock(mutex_);
    refresh(true);
    if (broken_) {
        return std::nullopt;
    }
    return committed_;
}

bool Store::replace(const Values &values) {
    const std::lock_guard lock(mutex_);
    const FolderLock folder(file_.parent_path());
    if (!folder.held() || !save(values)) {
        return false;
    }
    pending_.clear();
    return true;
}

}  // namespace vap

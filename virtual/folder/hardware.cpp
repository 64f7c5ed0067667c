#include "virtual/folder/hardware.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "virtual/folder/lock.h"
#include "virtual/inside.h"

namespace vap {
namespace {

/** The document of a file; throws std::runtime_error with a sentence. */
Json load(const std::filesystem::path &file) {
    const std::optional<std::string> text = read_file(file);
    if (!text) {
        throw std::runtime_error("cannot read " + file.string() + ": " + strerror(errno));
    }
    try {
        Json document = parse_json(*text);
        if (!document.is_object()) {
            throw std::runtime_error("no JSON object");
        }
        return document;
    } catch (const std::runtime_error &error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
}

}  // namespace

Hardware::Hardware(std::filesystem::path file, Lasting lasting)
    : file_(std::move(file)), lasting_(lasting), lookout_(file_) {
    document_ = load(file_);
}

void Hardware::refresh(bool now) {
    if (!lookout_.sees_change(now)) {
        return;
    }
    broken_ = true;
    try {
        document_ = load(file_);
        ++generation_;
        broken_ = false;
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "vap: %s; the description read before stays in use\n", error.what());
    }
}

Json Hardware::at(const std::string &pointer) {
    const std::lock_guard lock(mutex_);
    refresh(false);
    const Json::json_pointer place(pointer);
    return document_.contains(place) ? document_.at(place) : Json();
}

Json Hardware::whole() {
    const std::lock_guard lock(mutex_);
    refresh(true);
    return document_;
}

uint32_t Hardware::generation() {
    if (lookout_.due()) {  // every platform call asks: without the lock most times
        const std::lock_guard lock(mutex_);
        refresh(true);
    }
    return generation_;
}

void Hardware::patch(const Json &change) {
    if (!all_finite(change)) {
        throw std::runtime_error("hardware.json holds finite numbers only");
    }
    const std::lock_guard lock(mutex_);
    const FolderLock folder(file_.parent_path());
    refresh(true);
    if (broken_) {
        throw std::runtime_error(file_.string() + " is broken and was left alone");
    }
    Json changed = document_;
    changed.merge_patch(change);
    if (!folder.held()) {
        throw std::runtime_error("cannot write " + file_.string() + " without the folder's lock");
    }
    if (!replace_file(file_, changed.dump(2) + "\n", lasting_)) {
        throw std::runtime_error("cannot write " + file_.string() + ": " + strerror(errno));
    }
    lookout_.look();
    document_ = std::move(changed);
    ++generation_;
}

}  // namespace vap

#include "virtual/ap/journal.h"

#include <fcntl.h>
#include <unistd.h>

#include <sstream>

#include "virtual/ap/device.h"

namespace vap {

Journal::Journal(const std::filesystem::path &folder) : file_(folder / "journal.jsonl") {
    const Inside inside;
    fd_ = Descriptor(open(file_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (fd_.get() < 0) {
        throw std::runtime_error("cannot write " + file_.string());
    }
}

void Journal::append(const Json &line) {
    const std::string text = line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    write_all(fd_.get(), text);
}

std::vector<Json> Journal::lines() const {
    std::vector<Json> lines;
    std::istringstream text(read_file(file_).value_or(""));
    for (std::string line; std::getline(text, line);) {
        lines.push_back(Json::parse(line));
    }
    return lines;
}

void Journal::clear() {
    if (ftruncate(fd_.get(), 0) != 0) {
        throw std::runtime_error("cannot empty " + file_.string());
    }
}

}  // namespace vap

#include "nxapi/trouble.h"

#include "nxapi/log.h"

namespace nxapi {
namespace {

constexpr std::chrono::seconds pause{10};

/** Of the text that tells to what it happened. */
constexpr size_t longest_text = 200;

/** What is said of each `Trouble`, in their order. */
constexpr const char *sentences[] = {
    "retained commands are dropped",
    "commands are refused, since too many wait",
    "responses go to the default topic, since the one asked for is not the device's",
    "responses are too large to send",
    "serial numbers that were assigned are refused",
    "messages cannot be sent and are dropped",
    "messages found no place in the queue and are dropped",
};
static_assert(std::size(sentences) == static_cast<size_t>(Trouble::dropped) + 1);

}  // namespace

void Troubles::add(Trouble trouble, std::string_view what, size_t times) {
    Entry &entry = entries_[static_cast<size_t>(trouble)];
    if (entry.count == 0) {
        entry.first = what.substr(0, longest_text);
    }
    entry.count += times;
}

void Troubles::tell(Clock::time_point now) {
    for (size_t i = 0; i < entries_.size(); ++i) {
        Entry &entry = entries_[i];
        if (entry.count > 0 && now >= entry.quiet_until) {
            say(Level::warning, "%s: %zu (%s%s)", sentences[i], entry.count,
                entry.count == 1 ? "" : "first ", entry.first.c_str());
            entry.count = 0;
            entry.quiet_until = now + pause;
        }
    }
}

}  // namespace nxapi

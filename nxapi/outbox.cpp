#include "nxapi/outbox.h"

#include <algorithm>
#include <utility>

namespace nxapi {

bool Outbox::push(Message message) {
    const size_t bytes = message.bytes();
    if (bytes > most_bytes_) {
        return false;
    }
    entries_.push_back({std::move(message)});
    waiting_bytes_ += bytes;
    drop_oldest();
    return true;
}

void Outbox::drop_oldest() {
    while (waiting() > most_messages_ || waiting_bytes_ > most_bytes_) {
        refuse_next();
        ++dropped_;
    }
}

const Message *Outbox::next() const {
    return waiting() == 0 ? nullptr : &entries_[flying_].message;
}

void Outbox::sent(int identifier) {
    Entry &entry = entries_[flying_++];
    entry.identifier = identifier;
    waiting_bytes_ -= entry.message.bytes();
}

void Outbox::refuse_next() {
    waiting_bytes_ -= entries_[flying_].message.bytes();
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(flying_));
}

bool Outbox::acknowledged(int identifier) {
    const auto end = entries_.begin() + static_cast<std::ptrdiff_t>(flying_);
    const auto entry = std::find_if(entries_.begin(), end,
                                    [&](const Entry &e) { return e.identifier == identifier; });
    if (entry == end) {
        return false;
    }
    entries_.erase(entry);
    --flying_;
    return true;
}

void Outbox::link_lost() {
    for (size_t i = 0; i < flying_; ++i) {
        waiting_bytes_ += entries_[i].message.bytes();
    }
    flying_ = 0;
    drop_oldest();
}

size_t Outbox::take_dropped() {
    return std::exchange(dropped_, 0);
}

}  // namespace nxapi

#include "core/event_loop.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "nx_limits.h"
#include "trace.h"

poll_link pitems = {&pitems, &pitems};

namespace {

size_t item_count = 0;

// One pass of the loop: what is polled, and the item behind each entry. An item
// that is stopped during the pass is taken out, so that it is not called back.
std::array<pollfd, limits::poll_items> watched;
std::array<poll_item *, limits::poll_items> dispatch;
size_t watched_count = 0;

/** Lets a use after removal show. A compiler leaves out what is written to memory that is
 *  freed next, unless it is volatile. */
void poison(volatile poll_link *link) {
    link->next = reinterpret_cast<poll_link *>(1);
    link->prev = reinterpret_cast<poll_link *>(2);
}

void collect() {
    watched_count = 0;
    for (poll_link *link = pitems.next; link != &pitems; link = link->next) {
        auto *item = static_cast<poll_item *>(link);
        watched[watched_count] = {item->fd, static_cast<short>(item->events), 0};
        dispatch[watched_count] = item;
        ++watched_count;
    }
}

}  // namespace

poll_item *poll_item_add(int fd, int events, nx_poll_cb callback, const char *function) {
    if (item_count >= limits::poll_items) {
        NX_TRACE_AS(function, "too many descriptors: %zu\n", item_count);
        return nullptr;
    }
    auto *item = static_cast<poll_item *>(malloc(sizeof(poll_item)));
    if (item == nullptr) {
        NX_TRACE_AS(function, "Out of memory!\n");
        return nullptr;
    }
    item->fd = fd;
    item->events = events;
    item->callback = callback;
    item->next = pitems.next;
    item->prev = &pitems;
    pitems.next->prev = item;
    pitems.next = item;
    ++item_count;
    return item;
}

int start_poll_fn(int fd, int event, nx_poll_cb callback) {
    if (event != NX_POLL_READ && event != NX_POLL_WRITE) {
        NX_TRACE("Unsupport Event: %d\n", event);
        return -1;
    }
    const int mask = event == NX_POLL_READ ? POLLIN : POLLOUT;
    return poll_item_add(fd, mask, callback) != nullptr ? 0 : -1;
}

int stop_poll_fn(void *handle) {
    auto *item = static_cast<poll_item *>(handle);
    if (item == nullptr) {
        return 0;
    }
    item->next->prev = item->prev;
    item->prev->next = item->next;
    poison(item);
    std::replace(dispatch.begin(), dispatch.begin() + watched_count, item,
                 static_cast<poll_item *>(nullptr));
    --item_count;
    free(item);
    return 0;
}

void poll_once() {
    collect();
    if (poll(watched.data(), watched_count, -1) <= 0) {
        return;
    }
    for (size_t i = 0; i < watched_count; ++i) {
        poll_item *item = dispatch[i];
        if (item != nullptr && (watched[i].revents & item->events) != 0) {
            item->callback(item, item->fd, item->events);
        }
    }
}

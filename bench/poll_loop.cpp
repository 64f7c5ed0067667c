/* What one pass of the agent's loop costs beyond the system call, with few and many
 * watched descriptors of which one is ready. */
#include "core/event_loop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bench/support/ratio.h"
#include "bench/support/table.h"

namespace {

constexpr int passes = 20;

std::vector<pollfd> watched;

void make_ready(int fd) {
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t size = write(fd, &one, sizeof one);
}

void take(int fd) {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(fd, &count, sizeof count);
}

void grow_to(size_t count) {
    while (watched.size() < count) {
        const int fd = eventfd(0, EFD_CLOEXEC);
        watched.push_back({fd, POLLIN, 0});
        poll_item_add(fd, POLLIN, [](void *, int ready, int) {
            take(ready);
            return 0;
        });
    }
}

/** The same by hand: the system call, and a look for what is ready. */
void bare_pass() {
    poll(watched.data(), watched.size(), -1);
    for (const pollfd &entry : watched) {
        if (entry.revents != 0) {
            take(entry.fd);
        }
    }
}

template <typename Pass>
auto often(int fd, Pass pass) {
    return [=] {
        for (int i = 0; i < passes; ++i) {
            make_ready(fd);
            pass();
        }
    };
}

}  // namespace

int main() {
    bench::Table table;
    for (const size_t count : {1, 10, 100, 1000}) {
        grow_to(count);
        const int fd = watched[count / 2].fd;
        const bench::Medians medians = bench::measure(often(fd, poll_once), often(fd, bare_pass));
        table.add({.what = "pass of the loop, " + std::to_string(count) + " descriptors",
                   .norvex = medians.work / passes,
                   .floor = medians.floor / passes,
                   .goal = bench::ratio_at_most(1.3)});
    }
    return table.status();
}

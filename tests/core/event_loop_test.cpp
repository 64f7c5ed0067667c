#include "core/event_loop.h"

#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "nx_limits.h"
#include "tests/support/support.h"

namespace {

struct Call {
    int fd;
    int mask;
};
std::vector<Call> calls;
void *last_item = nullptr;

int note_call(void *item, int fd, int mask) {
    calls.push_back({fd, mask});
    last_item = item;
    return -7;  // the loop takes no notice
}

int stop_itself(void *item, int fd, int mask) {
    note_call(item, fd, mask);
    return stop_poll_fn(item);
}

poll_item *victim = nullptr;
int stop_the_other(void *item, int fd, int mask) {
    note_call(item, fd, mask);
    stop_poll_fn(victim);
    return 0;
}

/** Descriptors that are ready to be read, and writable. */
class Loop : public ::testing::Test {
  protected:
    Loop() { calls.clear(); }
    ~Loop() override {
        while (pitems.next != &pitems) {
            stop_poll_fn(static_cast<poll_item *>(pitems.next));
        }
        for (const int fd : fds) {
            close(fd);
        }
    }
    int ready() {
        fds.push_back(eventfd(1, EFD_CLOEXEC));
        return fds.back();
    }
    std::vector<int> fds;
};

TEST_F(Loop, ServesTheNewestFirstWithTheWantedMask) {
    const int first = ready();
    const int second = ready();
    ASSERT_EQ(start_poll_fn(first, NX_POLL_READ, note_call), 0);
    ASSERT_EQ(start_poll_fn(second, NX_POLL_WRITE, note_call), 0);
    poll_once();
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_EQ(calls[0].fd, second);
    EXPECT_EQ(calls[0].mask, 4);
    EXPECT_EQ(calls[1].fd, first);
    EXPECT_EQ(calls[1].mask, 1);
}

TEST_F(Loop, RefusesOtherEventsAndMoreThanItsLimit) {
    EXPECT_EQ(start_poll_fn(0, 2, note_call), -1);
    EXPECT_EQ(start_poll_fn(0, -1, note_call), -1);
    EXPECT_EQ(pitems.next, &pitems);
    const int fd = ready();
    for (size_t i = 0; i < limits::poll_items; ++i) {
        ASSERT_EQ(start_poll_fn(fd, NX_POLL_READ, stop_itself), 0) << i;
    }
    EXPECT_EQ(start_poll_fn(fd, NX_POLL_READ, stop_itself), -1);
    poll_once();
    EXPECT_EQ(calls.size(), limits::poll_items);
    EXPECT_EQ(pitems.next, &pitems) << "every item stopped itself";
    EXPECT_EQ(start_poll_fn(fd, NX_POLL_READ, stop_itself), 0) << "there is room again";
}

TEST_F(Loop, DoesNotCallAnItemThatWasStoppedInTheSamePass) {
    victim = poll_item_add(ready(), 1, note_call);
    const int stopper = ready();
    ASSERT_EQ(start_poll_fn(stopper, NX_POLL_READ, stop_the_other), 0);
    poll_once();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].fd, stopper);
    EXPECT_EQ(stop_poll_fn(nullptr), 0);
}

TEST_F(Loop, TellsOfNothingButWhatIsWanted) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    fds.push_back(pair[0]);
    close(pair[1]);  // readable and hung up
    ASSERT_EQ(start_poll_fn(pair[0], NX_POLL_READ, note_call), 0);
    close(ready());  // an invalid descriptor reports only an error
    ASSERT_EQ(start_poll_fn(fds.back(), NX_POLL_READ, note_call), 0);
    fds.pop_back();
    poll_once();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].fd, pair[0]);
    EXPECT_EQ(calls[0].mask, 1);
}

}  // namespace

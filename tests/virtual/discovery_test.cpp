/* The local discovery service behind its socket. */
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <thread>

#include "tests/support/support.h"

namespace {

using test::Device;

class Discovery : public Device {
  protected:
    /** Asks the service as the agent does; bytes of the answer, -1 when nothing
     *  came in that time, -2 when nobody listens. */
    static ssize_t ask(const std::string &request, timeval wait = {20, 0}) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, "/tmp/auto.socket");
        ssize_t result = -2;
        if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
            char answer[1024];
            for (const char byte : request) {  // however it is cut on its way
                send(fd, &byte, 1, MSG_NOSIGNAL);
            }
            result = recv(fd, answer, sizeof answer, 0);
        }
        close(fd);
        return result;
    }

    const timeval shortly_{0, 100'000};
    const std::string request_ = '\x01' + std::string(63, '\0');
};

TEST_F(Discovery, AnswersAWholeRequestAndJournalsIt) {
    EXPECT_GT(ask(request_), 0);
    EXPECT_EQ(effects({"autodiscover"}),
              std::vector<std::string>{"autodiscover 01" + std::string(126, '0')});
    EXPECT_EQ(ask(request_.substr(1), shortly_), -1) << "63 bytes are no request";
    EXPECT_THAT(effects({"autodiscover"}), testing::IsEmpty());
    for (int i = 0; i < 40; ++i) {
        ask("x", {0, 1});
    }
    EXPECT_GT(ask(request_), 0) << "clients that gave up leave nothing behind";
}

TEST_F(Discovery, CanBeSilentOrAbsent) {
    vap::patch_hardware({{"discovery", "silent"}});
    EXPECT_EQ(ask(request_, shortly_), -1);
    bool asked = false;
    for (int tries = 0; tries < 2000 && !asked; tries++) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        asked = !effects({"autodiscover"}).empty();
    }
    EXPECT_TRUE(asked) << "all the same";
    vap::patch_hardware({{"discovery", "absent"}});
    EXPECT_EQ(ask(request_), -2);
    vap::patch_hardware({{"discovery", "answers"}});
    EXPECT_GT(ask(request_), 0);
}

}  // namespace

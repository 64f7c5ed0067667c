#include "core/control_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>

#include "core/event_loop.h"
#include "nx_limits.h"
#include "paths.h"
#include "tests/support/support.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr const char *device_path = "/var/norvex_socket";

/** A program of the device that sends a message. */
class Sender {
  public:
    Sender() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {}
    ~Sender() { close(fd_); }
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    /** False while the agent's backlog is full. */
    bool connect_to_agent() const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        snprintf(address.sun_path, sizeof address.sun_path, "%s/root%s", vap::folder().c_str(),
                 device_path);
        return connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    void write(const std::string &text) const {
        EXPECT_EQ(send(fd_, text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    /** True when the agent has closed the connection, without a word. */
    bool was_hung_up() const {
        char byte;
        const ssize_t length = recv(fd_, &byte, 1, 0);
        // An agent that leaves bytes unread resets the connection.
        return length == 0 || (length < 0 && errno == ECONNRESET);
    }

  private:
    int fd_;
};

class ControlSocket : public test::Device {
  protected:
    ControlSocket() : fd_(nx_cgi_init()) { effects(); }
    ~ControlSocket() override {
        stop_poll_fn(pitems.next);
        close(fd_);
    }

    /** Sends one message, lets the agent serve it, and gives back the uploads. */
    std::vector<std::string> send_message(const std::string &text) {
        const Sender sender;
        EXPECT_TRUE(sender.connect_to_agent());
        sender.write(text);
        poll_once();
        EXPECT_TRUE(sender.was_hung_up());
        return uploads_now();
    }
    std::vector<std::string> uploads_now() {
        return effects(
            {"nx_api_config_upload", "nx_api_manage_info_upload", "nx_api_sys_log_upload_v1"});
    }

    int fd_;
};

TEST_F(ControlSocket, ObeysItsThreeMessages) {
    EXPECT_THAT(send_message("DownloadCfg"), ElementsAre(StartsWith("nx_api_config_upload ")));
    EXPECT_THAT(send_message("SkyModeChange"),
                ElementsAre("nx_api_manage_info_upload {\n\t\"manage\":\t2\n}"));
    EXPECT_THAT(send_message("norvex.log.link up"),
                ElementsAre("nx_api_sys_log_upload_v1 link up"));
    EXPECT_EQ(fcntl(fd_, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(ControlSocket, TakesNoNearMiss) {
    const std::string nul(1, '\0');
    struct Row {
        std::string message;
        const char *upload;  // null: none
    } const rows[] = {
        {"DownloadCfg\n", nullptr},
        {"downloadcfg", nullptr},
        {" DownloadCfg", nullptr},
        {"SkyModeChang", nullptr},
        {"norvex.log", nullptr},
        {"\xff\xfe%s%n", nullptr},
        {nul + "SkyModeChange", nullptr},  // a text ends at its NUL ...
        {"SkyModeChange" + nul + "more", "nx_api_manage_info_upload {\n\t\"manage\":\t2\n}"},
        {"norvex.log.", "nx_api_sys_log_upload_v1 "},
        {"abcnorvex.log.hello", "nx_api_sys_log_upload_v1 og.hello"},  // cut at a fixed place
        {"norvex.log.a" + nul + "b", "nx_api_sys_log_upload_v1 a"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.message);
        if (row.upload == nullptr) {
            EXPECT_THAT(send_message(row.message), IsEmpty());
        } else {
            EXPECT_THAT(send_message(row.message), ElementsAre(row.upload));
        }
    }
}

TEST_F(ControlSocket, ReadsOneThousandAndTwentyFourBytes) {
    const std::string prefix = "norvex.log.";
    const std::string fits(1024 - prefix.size(), 'x');
    for (const size_t more : {0, 1, 1024, 100'000}) {
        EXPECT_THAT(send_message(prefix + fits + std::string(more, 'y')),
                    ElementsAre("nx_api_sys_log_upload_v1 " + fits))
            << more << " bytes too many";
    }
    EXPECT_THAT(send_message(std::string(1020, 'x') + prefix), IsEmpty())
        << "the prefix does not come whole";
}

TEST_F(ControlSocket, IgnoresASenderWithoutAMessage) {
    { EXPECT_TRUE(Sender().connect_to_agent()); }
    poll_once();
    EXPECT_THAT(effects(), IsEmpty());
    EXPECT_EQ(recv_msg_handle(nullptr, -1, POLLIN), -1) << "nobody could be accepted";
}

TEST_F(ControlSocket, LetsTwentySendersWait) {
    std::vector<std::unique_ptr<Sender>> waiting;
    for (int i = 0; i < 20; ++i) {
        waiting.push_back(std::make_unique<Sender>());
        ASSERT_TRUE(waiting.back()->connect_to_agent()) << i;
        waiting.back()->write("norvex.log." + std::to_string(i));
    }
    waiting.clear();  // a sender that hangs up at once has said what it said
    for (int i = 0; i < 20; ++i) {
        poll_once();
        EXPECT_THAT(uploads_now(), ElementsAre("nx_api_sys_log_upload_v1 " + std::to_string(i)));
    }
}

TEST_F(ControlSocket, GivesASilentSenderTwoSeconds) {
    const Sender silent;
    ASSERT_TRUE(silent.connect_to_agent());
    const auto start = std::chrono::steady_clock::now();
    poll_once();
    const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited.count(), 1.9);
    EXPECT_LT(waited.count(), 20.0);
    EXPECT_TRUE(silent.was_hung_up());
    EXPECT_THAT(send_message("norvex.log.after"), ElementsAre("nx_api_sys_log_upload_v1 after"));
}

class ControlSocketStart : public test::Device {
  protected:
    std::filesystem::path path() const { return vap::folder() / "root/var/norvex_socket"; }
};

TEST_F(ControlSocketStart, ReplacesWhatAnEarlierRunLeft) {
    int first = -1;
    EXPECT_EQ(nx_server_init(device_path, &first), first);
    int second = -1;
    nx_server_init(device_path, &second);  // over the socket of the first
    close(first);
    EXPECT_TRUE(Sender().connect_to_agent());
    close(second);
}

TEST_F(ControlSocketStart, EndsTheProcessWhenItCannotStart) {
    // The device has threads, so the program starts anew; under an emulator it cannot.
    const bool emulated = std::string_view(NORVEX_RUN_DIR) != NORVEX_BIN_DIR;
    GTEST_FLAG_SET(death_test_style, emulated ? "fast" : "threadsafe");
    std::filesystem::create_directories(path());
    EXPECT_EXIT(nx_cgi_init(), ::testing::ExitedWithCode(1), "");
    int fd = -1;
    const std::string too_long = "/var/" + std::string(200, 'x');
    EXPECT_EXIT(nx_server_init(too_long.c_str(), &fd), ::testing::ExitedWithCode(1), "");
    EXPECT_EQ(fd, -1);
}

TEST_F(ControlSocketStart, ClosesItsSocketWhenItCannotBeWatched) {
    std::vector<poll_item *> items;
    while (poll_item *item = poll_item_add(0, POLLIN, recv_msg_handle)) {
        items.push_back(item);
    }
    EXPECT_THAT(output_of([] { EXPECT_EQ(nx_cgi_init(), -1); }),
                HasSubstr("] : too many descriptors: 1024\n"))
        << "a full list is not a lack of memory";
    EXPECT_FALSE(Sender().connect_to_agent()) << "nobody listens any more";
    for (poll_item *item : items) {
        stop_poll_fn(item);
    }
}

}  // namespace

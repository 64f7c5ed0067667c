/**
 * The real daemon as a process of its own: how it starts and how it fails to.
 */
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>

#include "paths.h"
#include "tests/support/support.h"
#include "virtual/folder/lock.h"

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

/** A running agent, its standard output in a pipe. */
class Agent {
  public:
    explicit Agent(const std::filesystem::path &device) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        output_ = ends[0];
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            setenv("VAP_DEVICE", device.c_str(), 1);
            execl(NORVEX_RUN_DIR "/norvex", "norvex", static_cast<char *>(nullptr));
            _exit(127);
        }
        close(ends[1]);
    }
    ~Agent() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(output_);
    }
    Agent(const Agent &) = delete;
    Agent &operator=(const Agent &) = delete;

    /** Reads until `text` has come or the output ends, at most 20 seconds. */
    bool wait_for(const std::string &text) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (read_.find(text) == std::string::npos) {
            pollfd wanted{output_, POLLIN, 0};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                end - std::chrono::steady_clock::now());
            char buffer[4096];
            if (left.count() <= 0 || poll(&wanted, 1, static_cast<int>(left.count())) <= 0) {
                return false;
            }
            const ssize_t count = read(output_, buffer, sizeof buffer);
            if (count <= 0) {
                return false;
            }
            read_.append(buffer, static_cast<size_t>(count));
        }
        return true;
    }

    /** Exit status of an agent that ends by itself. */
    int exit_status() {
        wait_for(std::string(1, '\0'));  // to the end of the output
        int status = -1;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string &output() const { return read_; }

  private:
    pid_t pid_ = -1;
    int output_ = -1;
    std::string read_;
};

class Startup : public ::testing::Test {
  protected:
    Startup() {
        vap::create_device(device, {.serial = "NXT0000000002"});
        configure("nx.debug=1\n");
    }
    void configure(const std::string &lines) {
        std::ofstream(device / "config", std::ios::app) << lines;
    }
    void cloud_settings(const std::string &text) {
        std::ofstream(device / "root/etc/nxapi.conf") << text;
    }
    void hardware_fault(const std::string &operation, int result) {
        std::ifstream in(device / "hardware.json");
        vap::Json hardware = vap::Json::parse(in);
        hardware["faults"] = {{{"op", operation}, {"nth", 1}, {"times", 1}, {"result", result}}};
        std::ofstream(device / "hardware.json") << hardware;
    }

    test::TempFolder folder;
    std::filesystem::path device = folder.path() / "ap";
};

TEST_F(Startup, TellsOfEachStepInOrder) {
    cloud_settings("broker=mqtt://127.0.0.1:1\n");  // nobody listens: uploads wait
    Agent agent(device);
    ASSERT_TRUE(agent.wait_for("init succeed!")) << agent.output();
    EXPECT_THAT(
        agent.output(),
        ContainsRegex("\\[nx_conn_notify\\]\\[[0-9]+\\] : ########nx_conn_notify##########\n"
                      ".*\\[cloud_api\\]\\[[0-9]+\\] : enable cloud info OK\n"
                      ".*\\[set_basic_info\\]\\[[0-9]+\\] : nx_api_set_basic_info succeed!\n"
                      ".*\\[set_bind_info\\]\\[[0-9]+\\] : nx_api_bind_info_upload succeed!\n"
                      ".*\\[dev_api\\]\\[([0-9]+)\\] : \\[dev_api\\]:\\[[0-9]+\\],enable dev "
                      "info OK\n"
                      ".*\\[net_api\\]\\[[0-9]+\\] : enable dev info OK\n"
                      ".*\\[wireless_api\\]\\[[0-9]+\\] : enable dev info OK\n"
                      "(.*\n)*"
                      ".*\\[nx_server_init\\]\\[[0-9]+\\] : UNIX domain socket bound\n"
                      "(.*\n)*"
                      ".*\\[nx_cgi_init\\]\\[[0-9]+\\] : init succeed!  fd:[0-9]+\n"));
}

TEST_F(Startup, EndsWhenTheStoreIsDown) {
    for (const char *operation : {"apmib_init", "thread"}) {
        hardware_fault(operation, 0);
        Agent agent(device);
        EXPECT_EQ(agent.exit_status(), 255);
        EXPECT_EQ(agent.output(), "Initialize AP MIB failed !\n");
    }
}

TEST_F(Startup, LeavesADeviceThatRunsAlone) {
    Agent first(device);
    ASSERT_TRUE(first.wait_for("init succeed!")) << first.output();
    struct stat before = {}, after = {};
    stat((device / "root/var/norvex_socket").c_str(), &before);
    Agent second(device);
    EXPECT_EQ(second.exit_status(), 255);
    EXPECT_EQ(second.output(), "Initialize AP MIB failed !\n");
    stat((device / "root/var/norvex_socket").c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino) << "it still listens there";
    EXPECT_THROW(vap::RunLock{device}, std::runtime_error);

    for (const auto &entry : std::filesystem::recursive_directory_iterator(device)) {
        lstat(entry.path().c_str(), &after);
        EXPECT_EQ(after.st_mode & (S_IRWXG | S_IRWXO), 0u) << entry << " is for others, too";
    }
}

TEST_F(Startup, EndsWhenTheLibraryOrTheLastFamilyIsRefused) {
    struct Row {
        const char *fault;
        const char *message;
    } const rows[] = {
        {"nx_api_lib_init:-1", "] : Failed to init nx api\n"},
        {"nx_api_enable_m_wlan_fun:-1", "] : Failed to register conn notify\n"},
    };
    for (const Row &row : rows) {
        cloud_settings(std::string("fault=") + row.fault + "\n");
        Agent agent(device);
        EXPECT_EQ(agent.exit_status(), 255) << row.fault;
        EXPECT_THAT(agent.output(), HasSubstr(row.message));
    }
    configure("nx.debug=0\n");
    Agent silent(device);
    EXPECT_EQ(silent.exit_status(), 255);
    EXPECT_EQ(silent.output(), "") << "these are said only with the debug flag";
}

TEST_F(Startup, GoesOnWhenOtherRegistrationsAreRefused) {
    cloud_settings(
        "fault=nx_api_enable_m_cloud_fun:-1\nfault=nx_api_enable_m_dev_fun:-1\n"
        "fault=nx_api_enable_m_net_fun:-1\nfault=nx_api_set_basic_info:-1\n"
        "fault=nx_api_bind_info_upload:-1\n");
    Agent agent(device);
    EXPECT_TRUE(agent.wait_for("init succeed!")) << agent.output();
    EXPECT_THAT(agent.output(), HasSubstr("] : enable cloud info failed!\n"));
    EXPECT_THAT(agent.output(),
                ContainsRegex("\\[dev_api\\]:\\[[0-9]+\\],enable dev info failed!\n"));
    EXPECT_THAT(agent.output(), Not(HasSubstr("Failed to register")));
}

TEST_F(Startup, ExitsWhenTheControlSocketCannotBeBound) {
    std::filesystem::create_directories(device / "root/var/norvex_socket/in_the_way");
    Agent agent(device);
    EXPECT_EQ(agent.exit_status(), 1);
    EXPECT_THAT(agent.output(), HasSubstr("] : bind error\n"));
}

}  // namespace

/**
 * The vap program, run as a person runs it. A script stands in for the agent
 * where only its exit statuses matter.
 */
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "tests/support/support.h"
#include "virtual/ap/files.h"
#include "virtual/ap/store.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

struct Result {
    int status = -1;
    std::string out, err;
};

std::string text_of(const std::filesystem::path &path) {
    return vap::read_file(path).value_or("");
}

class VapTool : public testing::Test {
  protected:
    VapTool() { run({"new", device(), "--serial", "S1"}); }

    std::string device() const { return (folder_.path() / "ap").string(); }
    const std::filesystem::path &folder() const { return folder_.path(); }

    /** Starts vap with its output in files. */
    pid_t start(const std::vector<std::string> &arguments) {
        const pid_t child = fork();
        if (child == 0) {
            std::vector<char *> words{const_cast<char *>("vap")};
            for (const std::string &argument : arguments) {
                words.push_back(const_cast<char *>(argument.c_str()));
            }
            words.push_back(nullptr);
            for (const auto &[fd, name] : {std::pair{1, "out"}, std::pair{2, "err"}}) {
                dup2(open((folder() / name).c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), fd);
            }
            execv(NORVEX_RUN_DIR "/vap", words.data());
            _exit(127);
        }
        return child;
    }

    Result finish(pid_t child) {
        int status = 0;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text_of(folder() / "out"),
                text_of(folder() / "err")};
    }

    Result run(const std::vector<std::string> &arguments) { return finish(start(arguments)); }

    /** A program in the agent's place. */
    std::string script(const std::string &body) {
        const std::filesystem::path path = folder() / "agent";
        std::ofstream(path) << "#!/bin/sh\n" << body;
        std::filesystem::permissions(path, std::filesystem::perms(0755));
        return path.string();
    }

    /** Waits until a file of the temporary folder holds a text. */
    bool appears(const std::string &name, const std::string &text) {
        for (int i = 0; i < 1000; ++i) {
            if (text_of(folder() / name).find(text) != std::string::npos) {
                return true;
            }
            std::this_thread::sleep_for(20ms);
        }
        return false;
    }

  private:
    test::TempFolder folder_;
};

TEST_F(VapTool, ReadsAndWritesAConfiguration) {
    EXPECT_EQ(run({"set", device(), "nx.url", "a b\\c"}).status, 0);
    EXPECT_EQ(run({"get", device(), "nx.url"}).out, "a b\\c\n");
    EXPECT_THAT(run({"get", device()}).out, StartsWith("ap.apname=ZX-A5V1.0\n"));
    EXPECT_EQ(run({"get", device(), "ZQ_ATE_SN", "--factory"}).out, "S1\n");
}

TEST_F(VapTool, SaysWhatIsWrongInASentence) {
    const std::string broken = (folder() / "broken").string();
    run({"new", broken});
    std::ofstream(broken + "/config") << "fine=1\nnot fine\n";
    const std::string odd = (folder() / "odd").string();
    run({"new", odd});
    std::ofstream(odd + "/hardware.json") << "{";
    const struct {
        std::vector<std::string> arguments;
        const char *sentence;
    } rows[] = {
        {{}, "vap: A subcommand is required"},
        {{"fly"}, "vap: "},
        {{"new", device()}, "is there already"},
        {{"new", (folder() / "x").string(), "--serial", "a/b"}, "serial number"},
        {{"get", device(), "no.such.key"}, "no.such.key is not set"},
        {{"get", (folder() / "none").string(), "a"}, "cannot read"},
        {{"get", broken, "fine"}, "config, line 2"},
        {{"set", broken, "a", "b"}, "config, line 2"},
        {{"set", device(), "a=b", "c"}, "no key"},
        {{"set", device(), "a", std::string(1024, 'x')}, "at most 1023"},
        {{"journal", (folder() / "none").string()}, "no journal"},
        {{"send", device(), "DownloadCfg"}, "no agent listens"},
        {{"send", device(), ""}, "1 to 1024"},
        {{"run", (folder() / "none").string()}, "no device folder"},
        {{"run", device(), "--speed", "0"}, "greater than 0"},
        {{"run", device(), "--speed", "fast"}, "--speed"},
        {{"run", device(), "--agent", "/no/agent"}, "no agent at /no/agent"},
        {{"run", device(), "--broker", "mqtt://a\nb"}, "no address"},
        {{"run", broken}, "config, line 2"},
        {{"run", odd}, "hardware.json"},
    };
    for (const auto &row : rows) {
        const Result result = run(row.arguments);
        EXPECT_NE(result.status, 0) << row.sentence;
        EXPECT_THAT(result.err, StartsWith("vap: "));
        EXPECT_THAT(result.err, HasSubstr(row.sentence));
        EXPECT_THAT(result.out, IsEmpty());
    }
    EXPECT_EQ(text_of(broken + "/config"), "fine=1\nnot fine\n") << "nothing is lost";
}

TEST_F(VapTool, HelpShowsExamples) {
    for (const char *command : {"new", "get", "set", "run", "journal", "send"}) {
        const Result result = run({command, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.out, HasSubstr(std::string("vap ") + command + " office"));
    }
}

TEST_F(VapTool, StartsTheAgentAgainAfterEachRestart) {
    const std::string counter = (folder() / "starts").string();
    const std::string agent = script("echo \"$VAP_DEVICE $VAP_SPEED $VAP_TRACE\" >> " + counter +
                                     "\n[ $(wc -l < " + counter + ") -lt 3 ] && exit 75\nexit 9\n");
    const Result result = run({"run", device(), "--agent", agent, "--speed", "2.5", "--trace"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "vap: the device restarts\nvap: the device restarts\n"
              "vap: the agent ended with status 9\n");
    const std::string line = std::filesystem::canonical(device()).string() + " 2.500000 1\n";
    EXPECT_EQ(text_of(counter), line + line + line);
}

TEST_F(VapTool, WritesTheBrokerAmongTheOtherSettings) {
    const std::filesystem::path settings = device() + "/root/etc/nxapi.conf";
    const std::string agent = script("exit 9\n");
    run({"run", device(), "--agent", agent, "--broker", "mqtt://127.0.0.1:1"});
    EXPECT_EQ(text_of(settings), "broker=mqtt://127.0.0.1:1\n");
    std::ofstream(settings) << "# mine\nbroker=old\nkeep=1\nbroker=older";
    run({"run", device(), "--agent", agent, "--broker", "mqtt://127.0.0.1:2"});
    EXPECT_EQ(text_of(settings), "# mine\nbroker=mqtt://127.0.0.1:2\nkeep=1\n");
    run({"run", device(), "--agent", agent});
    EXPECT_EQ(text_of(settings), "# mine\nbroker=mqtt://127.0.0.1:2\nkeep=1\n");
}

TEST_F(VapTool, EndsWhatItStartedAndRunsADeviceOnce) {
    const std::string agent = script("sleep 1000 &\necho $$ $! ready\nwait\n");
    const pid_t first = start({"run", device(), "--agent", agent});
    ASSERT_TRUE(appears("out", "ready"));
    int shell = 0, sleeper = 0;
    sscanf(text_of(folder() / "out").c_str(), "%d %d", &shell, &sleeper);
    const Result second = run({"run", device(), "--agent", agent});
    EXPECT_EQ(second.status, 1) << "a running device is refused";
    EXPECT_EQ(second.err, "vap: " + device() + " runs already\n");

    kill(first, SIGINT);
    EXPECT_EQ(finish(first).status, 0);
    EXPECT_EQ(kill(shell, 0), -1);
    for (int i = 0; i < 500 && kill(sleeper, 0) == 0; ++i) {
        std::this_thread::sleep_for(10ms);  // an orphan is reaped a moment later
    }
    EXPECT_EQ(kill(sleeper, 0), -1);
}

TEST_F(VapTool, StubbornAgentIsKilled) {
    const std::string agent = script("trap '' TERM\necho ready\nwhile :; do sleep 1000; done\n");
    const pid_t child = start({"run", device(), "--agent", agent});
    ASSERT_TRUE(appears("out", "ready"));
    const auto before = std::chrono::steady_clock::now();
    kill(child, SIGTERM);
    EXPECT_EQ(finish(child).status, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, 30s);
}

TEST_F(VapTool, FollowsAJournal) {
    const std::string journal = device() + "/journal.jsonl";
    std::ofstream(journal) << "{\"op\":\"one\"}\n";
    EXPECT_EQ(run({"journal", device()}).out, "{\"op\":\"one\"}\n");
    const pid_t child = start({"journal", device(), "--follow"});
    EXPECT_TRUE(appears("out", "one"));
    std::ofstream(journal, std::ios::app) << "{\"op\":\"two\"}\n";
    EXPECT_TRUE(appears("out", "two"));
    std::ofstream(journal, std::ios::trunc).flush();
    std::ofstream(journal, std::ios::app) << "{}\n";
    EXPECT_TRUE(appears("out", "{}"));
    kill(child, SIGTERM);
    finish(child);
}

/** The agent itself, on a device without a broker. */
TEST_F(VapTool, RunsTheAgent) {
    const std::string agent = NORVEX_RUN_DIR "/norvex";
    const pid_t child = start({"run", device(), "--agent", agent, "--trace", "--speed", "20",
                               "--broker", "mqtt://127.0.0.1:1"});
    EXPECT_TRUE(appears("out", "nx_api_dir_info_set succeed! path:/tmp/image"));
    EXPECT_EQ(run({"get", device(), "nx.debug"}).status, 1) << "tracing changes no setting";
    kill(child, SIGINT);
    finish(child);

    vap::Store(device() + "/config").set_now("nx.debug", "0");
    std::ofstream(device() + "/hardware.json")
        << R"({"faults": [{"op": "apmib_init", "result": 0}]})";
    const Result result = run({"run", device(), "--agent", agent});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Initialize AP MIB failed !\n");
    EXPECT_THAT(result.err, HasSubstr("the agent ended with status 255"));
}

}  // namespace

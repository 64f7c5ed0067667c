#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "tools/vap_commands.h"
#include "virtual/ap/device.h"
#include "virtual/ap/files.h"
#include "virtual/ap/hardware.h"
#include "virtual/ap/store.h"

namespace {

/** Time that the agent has to end after SIGTERM. */
constexpr timespec patience{3, 0};

struct Arguments {
    std::filesystem::path folder, agent;
    std::string broker;
    double speed = 1;
    bool trace = false;
};

/** The agent's settings of the cloud library, with another broker in them. */
std::string with_broker(const std::string &text, const std::string &broker) {
    std::istringstream lines(text);
    std::string changed;
    bool placed = false;
    for (std::string line; std::getline(lines, line);) {
        const bool names_broker = line.starts_with("broker=");
        if (!names_broker) {
            changed += line + "\n";
        } else if (!placed) {
            changed += "broker=" + broker + "\n";
        }
        placed = placed || names_broker;
    }
    return placed ? changed : changed + "broker=" + broker + "\n";
}

void write_broker(const Arguments &given) {
    const std::filesystem::path file = given.folder / "root/etc/nxapi.conf";
    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    const std::string text = vap::read_file(file).value_or("");
    if (!vap::replace_file(file, with_broker(text, given.broker))) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

std::filesystem::path find_agent(const Arguments &given) {
    std::error_code error;
    const std::filesystem::path agent =
        given.agent.empty()
            ? std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "norvex"
            : given.agent;
    if (access(agent.c_str(), X_OK) != 0) {
        throw std::runtime_error("no agent at " + agent.string() + " (name it with --agent)");
    }
    return agent;
}

/** One run of a device at a time: the lock lives as long as this process. */
vap::Descriptor lock_run(const std::filesystem::path &folder) {
    const std::filesystem::path file = folder / ".run.lock";
    vap::Descriptor fd(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (fd.get() < 0) {
        throw std::runtime_error("cannot write " + file.string());
    }
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(folder.string() + " runs already");
    }
    return fd;
}

sigset_t watched_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        sigaddset(&set, signal);
    }
    return set;
}

/** Starts the agent in a process group of its own, so that Ctrl-C reaches this
 *  process alone and what the agent runs ends with it. */
pid_t start_agent(const std::filesystem::path &agent) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error(std::string("cannot start the agent: ") + strerror(errno));
    }
    if (child > 0) {
        setpgid(child, child);
        return child;
    }
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const sigset_t set = watched_signals();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    if (getppid() == parent) {
        execl(agent.c_str(), "norvex", nullptr);
    }
    fprintf(stderr, "vap: cannot start %s: %s\n", agent.c_str(), strerror(errno));
    _exit(127);
}

int end_agent(pid_t agent) {
    kill(-agent, SIGTERM);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    int status = 0;
    if (waitpid(agent, &status, WNOHANG) != agent &&
        (sigtimedwait(&set, nullptr, &patience), waitpid(agent, &status, WNOHANG) != agent)) {
        kill(-agent, SIGKILL);
        waitpid(agent, &status, 0);
    }
    return status;
}

/** Waits for the agent's end; nothing when this process was told to end. */
std::optional<int> wait_for(pid_t agent) {
    const sigset_t set = watched_signals();
    for (;;) {
        const int signal = sigwaitinfo(&set, nullptr);
        if (signal == SIGINT || signal == SIGTERM || signal == SIGHUP) {
            end_agent(agent);
            return std::nullopt;
        }
        int status = 0;
        if (signal == SIGCHLD && waitpid(agent, &status, WNOHANG) == agent) {
            return status;
        }
    }
}

void set_environment(const Arguments &given) {
    setenv("VAP_DEVICE", std::filesystem::canonical(given.folder).c_str(), 1);
    setenv("VAP_SPEED", std::to_string(given.speed).c_str(), 1);
    given.trace ? setenv("VAP_TRACE", "1", 1) : unsetenv("VAP_TRACE");
}

void run(const Arguments &given) {
    if (!std::filesystem::exists(given.folder / "hardware.json")) {
        throw std::runtime_error(given.folder.string() + " is no device folder (see vap new)");
    }
    if (!(given.speed > 0) || !std::isfinite(given.speed)) {
        throw std::runtime_error("--speed must be greater than 0");
    }
    vap::Store(given.folder / "config");  // each of them says what is wrong with it
    vap::Store(given.folder / "factory");
    vap::Hardware(given.folder / "hardware.json");
    if (!vap::valid_text(given.broker) || given.broker.find_first_of("\r\n") != std::string::npos) {
        throw std::runtime_error("--broker is no address");
    }
    const std::filesystem::path agent = find_agent(given);
    const vap::Descriptor lock = lock_run(given.folder);
    if (!given.broker.empty()) {
        write_broker(given);
    }
    set_environment(given);
    const sigset_t set = watched_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    for (;;) {
        const std::optional<int> status = wait_for(start_agent(agent));
        if (!status) {
            return;
        }
        if (WIFSIGNALED(*status)) {
            throw std::runtime_error(std::string("the agent was ended by signal ") +
                                     strsignal(WTERMSIG(*status)));
        }
        if (WEXITSTATUS(*status) != vap::exit_restart) {
            throw std::runtime_error("the agent ended with status " +
                                     std::to_string(WEXITSTATUS(*status)));
        }
        fprintf(stderr, "vap: the device restarts\n");
    }
}

}  // namespace

void add_run_command(CLI::App &app) {
    CLI::App *command = app.add_subcommand("run", "Runs the agent on a device until Ctrl-C");
    command->description(
        "Runs the agent on a device until Ctrl-C, again after each restart of the device");
    command->footer(
        "Examples:\n"
        "  vap run office --broker mqtt://127.0.0.1:1883\n"
        "  vap run office --speed 20 --trace");
    const auto given = std::make_shared<Arguments>();
    command->add_option("DIR", given->folder, "Device folder")->required();
    command->add_option("--broker", given->broker, "Where the cloud's broker listens");
    command->add_option("--speed", given->speed, "How fast the device's time passes")
        ->capture_default_str();
    command->add_flag("--trace", given->trace, "Print the agent's trace lines");
    command->add_option("--agent", given->agent, "The agent's program; else norvex beside vap");
    command->callback([given] { run(*given); });
}

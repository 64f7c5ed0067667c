#include "tools/vap_agent.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>

#include "tools/cli.h"
#include "virtual/device/device.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/** Time that the agent has to end after SIGTERM. */
constexpr std::chrono::seconds patience = 3s;

constexpr std::chrono::milliseconds first_pause = 250ms;
constexpr std::chrono::milliseconds longest_pause = 60s;
constexpr std::chrono::seconds healthy_life = 60s;

/** Statuses of an agent that could not start: its own, and that of a missing program. */
constexpr int start_failed = 255;
constexpr int no_program = 127;

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
pid_t start_agent(const std::filesystem::path &agent, const vap::RunLock &lock) {
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0) {
        throw tools::Failure(tools::cannot("start", "the agent"));
    }
    if (child > 0) {
        setpgid(child, child);
        return child;
    }
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const sigset_t set = watched_signals();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    lock.pass_on();
    if (getppid() == parent) {
        execl(agent.c_str(), "norvex", nullptr);
    }
    fprintf(stderr, "vap: %s\n", tools::cannot("start", agent).c_str());
    _exit(no_program);
}

/** What a wait ended with. */
enum class Event { time_out, child, told_to_end };

Event next_event(Clock::time_point until) {
    const auto left = std::clamp<std::chrono::nanoseconds>(until - Clock::now(), 0s, 1h);
    const timespec wait{static_cast<time_t>(left / 1s), static_cast<long>((left % 1s).count())};
    const sigset_t set = watched_signals();
    const int signal = sigtimedwait(&set, nullptr, &wait);
    return signal < 0 ? Event::time_out : signal == SIGCHLD ? Event::child : Event::told_to_end;
}

/** Waits until the agent has ended, this process is told to end, or time is over. */
std::optional<int> wait_for(pid_t agent, Clock::time_point until, bool heeds_signals) {
    for (;;) {
        int status = 0;
        if (waitpid(agent, &status, WNOHANG) == agent) {
            return status;
        }
        const Event event = next_event(until);
        if ((event == Event::told_to_end && heeds_signals) ||
            (event == Event::time_out && Clock::now() >= until)) {
            return std::nullopt;
        }
    }
}

void end_agent(pid_t agent) {
    kill(-agent, SIGTERM);
    if (!wait_for(agent, Clock::now() + patience, false)) {
        kill(-agent, SIGKILL);
        waitpid(agent, nullptr, 0);
    }
}

/** False: this process was told to end meanwhile. */
bool sleep_through(std::chrono::milliseconds pause) {
    const Clock::time_point until = Clock::now() + pause;
    Event event = Event::child;
    while (event != Event::told_to_end && Clock::now() < until) {
        event = next_event(until);
    }
    return event != Event::told_to_end;
}

std::string end_text(int status) {
    return WIFSIGNALED(status)
               ? std::string("the agent was ended by signal ") + strsignal(WTERMSIG(status))
               : "the agent ended with status " + std::to_string(WEXITSTATUS(status));
}

bool could_not_start(int status) {
    return WIFEXITED(status) &&
           (WEXITSTATUS(status) == start_failed || WEXITSTATUS(status) == no_program);
}

}  // namespace

std::filesystem::path find_agent(const std::filesystem::path &given) {
    std::error_code error;
    const std::filesystem::path agent =
        given.empty()
            ? std::filesystem::read_symlink("/proc/self/exe", error).parent_path() / "norvex"
            : given;
    if (access(agent.c_str(), X_OK) != 0) {
        throw tools::Failure("no agent at " + agent.string() + " (name it with --agent)");
    }
    return agent;
}

void keep_agent(const std::filesystem::path &agent, const vap::RunLock &lock) {
    const sigset_t set = watched_signals();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    std::chrono::milliseconds pause = first_pause;
    for (bool first = true;; first = false) {
        const Clock::time_point start = Clock::now();
        const pid_t child = start_agent(agent, lock);
        const std::optional<int> status = wait_for(child, Clock::time_point::max(), true);
        if (!status) {
            end_agent(child);
            return;
        }
        if (first && could_not_start(*status)) {
            throw tools::Failure(end_text(*status));
        }
        if (WIFEXITED(*status) && WEXITSTATUS(*status) == vap::exit_restart) {
            fprintf(stderr, "vap: the device restarts\n");
            continue;
        }
        if (Clock::now() - start >= healthy_life) {
            pause = first_pause;
        }
        fprintf(stderr, "vap: %s; it starts again in %g s\n", end_text(*status).c_str(),
                std::chrono::duration<double>(pause).count());
        if (!sleep_through(pause)) {
            return;
        }
        pause = std::min(2 * pause, longest_pause);
    }
}

/**
 * Programs on a broker: the agent on a virtual device of its own, or the echo in its
 * place, and the cloud that speaks to them.
 */
#ifndef BENCH_SUPPORT_CLOUD_H
#define BENCH_SUPPORT_CLOUD_H

#include <memory>
#include <string>
#include <vector>

#include "tests/support/processes.h"

namespace bench {

using Clock = test::Clock;

inline double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

/** An echo works in one thread, or like the agent in its main thread while the network
 *  has another. */
enum class Kind { agent, echo };

/** One device; its process runs from `start` to the end of the subject. */
class Subject {
  public:
    /** Makes the agent's device in a folder below `place`. */
    Subject(Kind kind, const std::string &serial, const test::Broker &broker,
            const std::filesystem::path &place);

    /** Sets a key of the agent's device. */
    void configure(const std::string &key, const std::string &value) const;

    void start();
    void stop(int signal = SIGKILL) { process_->end(signal); }
    pid_t pid() const { return process_->pid(); }
    bool is_running() const { return process_ != nullptr && process_->is_running(); }

    const std::string &serial() const { return serial_; }
    const std::filesystem::path &folder() const { return folder_; }

    /** Memory of its process, bytes: "Pss" with its share of the libraries, "Anonymous"
     *  without any. 0 when it has ended. */
    double memory(const std::string &kind) const;

    /** Topic of a command that does nothing, and of its response. */
    std::string command_topic() const { return topic("cmd/net/1"); }
    std::string response_topic() const { return topic("rsp/net/1"); }
    std::string status_topic() const { return topic("status"); }

  private:
    std::string topic(const char *below) const { return "norvex/v1/" + serial_ + "/" + below; }

    Kind kind_;
    std::string serial_;
    std::filesystem::path folder_;
    std::vector<std::string> words_;
    std::unique_ptr<test::Child> process_;
};

/** The cloud: hears the status and the responses of every device. */
class Cloud {
  public:
    explicit Cloud(const test::Broker &broker);

    /** Waits until this many devices are online; throws when one is not within
     *  `limit`. */
    void wait_until_online(size_t count, std::chrono::seconds limit);

    /** Waits until no status and no response has come for a while, and forgets those
     *  that came. */
    void wait_until_quiet();

    /** Sends a command of one kilobyte; the answer carries `mark`. */
    void send(const Subject &subject, const std::string &mark);

    /** The marks of the answers that have come since the last call, having waited for
     *  `ms` at most. Throws when an answer is none. */
    std::vector<std::string> answers(int ms);

    /** Reads for as long as acknowledgements may still come. */
    void drain();

    /** Sends a command and waits for its answer: the time, seconds. */
    double round_trip(const Subject &subject);

  private:
    test::Console statuses_;
    test::Console responses_;
    std::string request_;
};

}  // namespace bench

#endif

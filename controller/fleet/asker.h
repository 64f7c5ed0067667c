/**
 * Questions to devices: one at a time for each, many devices at once, and an end for each.
 */
#ifndef CONTROLLER_FLEET_ASKER_H
#define CONTROLLER_FLEET_ASKER_H

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>

namespace fleet {

/** How a question ended. */
struct Outcome {
    enum class End {
        answered,
        refused, /**< the device could not read it, or has no such command */
        offline, /**< nobody got it */
        silent   /**< sent, and no answer came: whether it was carried out is not known */
    };
    End end = End::silent;
    std::string answer;
    double duration_ms = 0;
};

struct Question {
    std::string target; /**< "<family>/<slot>" */
    std::string request;
    double patience_s = 10;
    std::function<void(const Outcome &)> hear;
};

/** One thread; times are seconds of a steady clock. */
class Asker {
  public:
    /** A question on its way. */
    struct Sent {
        size_t broker = 0;
        int identifier = 0;
    };
    /** Sends to a device; false when it is away. */
    using Send = std::function<bool(const std::string &serial, const Question &question,
                                    const std::string &correlation, Sent &sent)>;

    explicit Asker(Send send) : send_(std::move(send)) {}

    /** Asks when the questions before are done; `urgent` stands in front of those that
     *  wait. `hear` is called once, maybe at once. */
    void ask(const std::string &serial, Question question, double now, bool urgent = false);

    /** Questions to a device that have no end yet. */
    size_t waiting(const std::string &serial) const {
        const auto line = lines_.find(serial);
        return line == lines_.end() ? 0 : line->second.questions.size();
    }

    /** An answer came, with `result` of the agent's callback. */
    void answered(const std::string &serial, const std::string &correlation, int result,
                  const std::string &answer, double now);

    /** The broker says whether anybody got it; reasons from 0x10 on say that nobody did. */
    void acknowledged(size_t broker, int identifier, int reason, double now);

    /** Ends what waited too long. */
    void tick(double now);

  private:
    /** The questions to one device, of which the first is on its way. */
    struct Line {
        std::deque<Question> questions;
        std::string correlation;
        Sent sent;
        double since = 0;
    };

    void send_first(const std::string &serial, double now);
    void end(const std::string &serial, Outcome outcome, double now);

    Send send_;
    std::unordered_map<std::string, Line> lines_;
    std::map<std::pair<size_t, int>, std::string> unacknowledged_; /**< serials */
    unsigned long long count_ = 0;
};

}  // namespace fleet

#endif

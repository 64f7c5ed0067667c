/**
 * What happens, for those who watch: the last events with their numbers, and a call for
 * each new one.
 */
#ifndef CONTROLLER_FLEET_FEED_H
#define CONTROLLER_FLEET_FEED_H

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

namespace fleet {

using Json = nlohmann::json;

struct Event {
    long long id = 0; /**< grows, across restarts too */
    std::string type;
    std::string data; /**< JSON in one line */
};

/** One thread. */
class Feed {
  public:
    void publish(const std::string &type, const Json &data) {
        events_.push_back({++last_, type, data.dump()});
        if (events_.size() > most_kept) {
            events_.pop_front();
        }
        for (const auto &[key, wake] : watchers_) {
            wake();
        }
    }

    /** The next event behind one; null for none yet. */
    const Event *after(long long id) const {
        if (events_.empty() || id >= last_) {
            return nullptr;
        }
        const long long skipped = id - (events_.front().id - 1);
        return &events_[static_cast<size_t>(std::max(0LL, skipped))];
    }

    /** Is everything behind this event still there? */
    bool reaches(long long id) const {
        return id <= last_ && id >= (events_.empty() ? last_ : events_.front().id - 1);
    }

    long long last() const { return last_; }

    /** Calls `wake` at each event until it is removed by the returned key. */
    long long watch(std::function<void()> wake) {
        watchers_.emplace(++key_, std::move(wake));
        return key_;
    }
    void unwatch(long long key) { watchers_.erase(key); }
    size_t watching() const { return watchers_.size(); }

  private:
    static constexpr size_t most_kept = 5000;

    std::deque<Event> events_; /**< without a gap */
    std::map<long long, std::function<void()>> watchers_;
    long long last_ = std::chrono::duration_cast<std::chrono::milliseconds>(
                          std::chrono::system_clock::now().time_since_epoch())
                          .count() *
                      1000;
    long long key_ = 0;
};

}  // namespace fleet

#endif

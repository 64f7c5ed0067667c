/**
 * The pauses between two attempts to connect.
 */
#ifndef NXAPI_BACKOFF_H
#define NXAPI_BACKOFF_H

#include <algorithm>
#include <chrono>
#include <random>

namespace nxapi {

/** Each pause is up to twice as long as the one before and at most a minute; chance
 *  takes up to half of it away, so that a fleet does not return in step. */
class Backoff {
  public:
    using Pause = std::chrono::milliseconds;
    static constexpr Pause longest = std::chrono::seconds(60);

    Backoff(Pause first, unsigned seed) : first_(first), whole_(first), chance_(seed) {}

    Pause next() {
        const Pause whole = std::min(whole_, longest);
        whole_ = std::min(whole * 2, longest);
        return about(whole);
    }

    /** A pause of the first length, whatever came before. */
    Pause first() { return about(first_); }

    void reset() { whole_ = first_; }

  private:
    Pause about(Pause whole) {
        std::uniform_int_distribution<Pause::rep> half_to_whole((whole / 2).count(), whole.count());
        return Pause(half_to_whole(chance_));
    }

    Pause first_;
    Pause whole_;
    std::minstd_rand chance_;
};

}  // namespace nxapi

#endif

/**
 * Complaints about what others can cause as often as they like.
 */
#ifndef NXAPI_TROUBLE_H
#define NXAPI_TROUBLE_H

#include <array>
#include <chrono>
#include <string>
#include <string_view>

namespace nxapi {

enum class Trouble { retained, refused, redirected, too_large, bad_serial, unsendable, dropped };

/** The first case of a trouble is said at once; those that follow within ten seconds
 *  are counted and said together. Not locked: the link's lock guards it. */
class Troubles {
  public:
    using Clock = std::chrono::steady_clock;

    /** It happened, `times` times, to `what`: for example a topic. */
    void add(Trouble trouble, std::string_view what, size_t times = 1);

    /** Says what is still unsaid and whose time has come. */
    void tell(Clock::time_point now = Clock::now());

  private:
    struct Entry {
        std::string first;
        size_t count = 0;
        Clock::time_point quiet_until;
    };

    std::array<Entry, static_cast<size_t>(Trouble::dropped) + 1> entries_;
};

}  // namespace nxapi

#endif

/**
 * A virtual access point with its SSIDs on and stations on all of them, inside the
 * process, under a clock that only the benchmark moves.
 */
#ifndef BENCH_SUPPORT_DEVICE_H
#define BENCH_SUPPORT_DEVICE_H

#include "json.h"
#include "tests/support/temp_folder.h"

namespace bench {

class Device {
  public:
    /** `stations`: on each of the two radios, at most 256. */
    explicit Device(int stations);
    ~Device();
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

  private:
    test::TempFolder folder_;
};

/** Builds a tree anew, member by member: with the parser and the printer of cJSON the
 *  least that a program does which makes such a document. */
cJSON *rebuild(const cJSON *tree);

}  // namespace bench

#endif

/**
 * A broker of the test's own, and waiting for what others do.
 */
#ifndef TESTS_SUPPORT_BROKER_H
#define TESTS_SUPPORT_BROKER_H

#include "tests/support/processes.h"
#include "tests/support/support.h"

namespace test {

/** Does something again and again until it has come true; fails the test when it
 *  never does. */
template <typename Step>
bool eventually(Step step) {
    for (const auto limit = Clock::now() + patience; Clock::now() < limit;) {
        if (step()) {
            return true;
        }
    }
    ADD_FAILURE() << "this did not come in time";
    return false;
}

}  // namespace test

#endif

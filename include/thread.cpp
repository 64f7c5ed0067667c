#include "thread.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <cstdlib>
#include <memory>

namespace {

struct Start {
    const char *name;
    void *(*body)(void *);
    void *argument;
};

struct StartFree {
    void operator()(Start *start) const { free(start); }
};
using StartOwner = std::unique_ptr<Start, StartFree>;

void *run(void *argument) {
    const Start start = *StartOwner(static_cast<Start *>(argument));
    prctl(PR_SET_NAME, start.name);
    return start.body(start.argument);
}

}  // namespace

bool start_detached(const char *name, void *(*body)(void *), void *argument) {
    StartOwner start(static_cast<Start *>(malloc(sizeof(Start))));
    pthread_attr_t attributes;
    if (!start || pthread_attr_init(&attributes) != 0) {
        return false;
    }
    *start = {name, body, argument};
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    const bool started = pthread_create(&thread, &attributes, run, start.get()) == 0;
    pthread_attr_destroy(&attributes);
    if (started) {
        static_cast<void>(start.release());  // the thread's own now
    }
    return started;
}

/**
 * Only in builds with a sanitizer, and part of the program itself: puts libvap in
 * front of the sanitizer's runtime when a thread is created. The runtime must
 * know a thread before libvap's code runs on it, and stands before every library
 * in the order of the link.
 */
#include <pthread.h>

namespace vap {
int create_thread(const void *caller, pthread_t *thread, const pthread_attr_t *attributes,
                  void *(*body)(void *), void *argument);
}

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                              void *(*body)(void *), void *argument) noexcept {
    return vap::create_thread(__builtin_return_address(0), thread, attributes, body, argument);
}

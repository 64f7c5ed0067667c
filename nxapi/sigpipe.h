/**
 * Writing to a peer that is gone, without a signal.
 */
#ifndef NXAPI_SIGPIPE_H
#define NXAPI_SIGPIPE_H

#include <csignal>
#include <ctime>

namespace nxapi {

/** Holds SIGPIPE back on the calling thread; one that the scope's own writes raised
 *  is thrown away. The process's handling of the signal stays what it is: children
 *  inherit that. */
class SigpipeHeld {
  public:
    SigpipeHeld() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    SigpipeHeld(const SigpipeHeld &) = delete;
    SigpipeHeld &operator=(const SigpipeHeld &) = delete;
    ~SigpipeHeld() {
        if (raised_ && sigismember(&before_, SIGPIPE) == 0) {
            const timespec at_once{};
            sigtimedwait(&pipe_, nullptr, &at_once);
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

    /** A write failed, so the signal may be waiting. */
    void write_failed() { raised_ = true; }

  private:
    sigset_t pipe_;
    sigset_t before_;
    bool raised_ = false;
};

}  // namespace nxapi

#endif

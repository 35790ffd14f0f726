#pragma once

#include <pthread.h>
#include <signal.h>

namespace vexim {

/// While this lives, a thread that is started takes no signals: they belong to the application's
/// threads, and SIGPIPE on one of ours would kill the process for a peer that hung up.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t all;
        ::sigfillset(&all);
        // What a faulty instruction raises must stay deliverable.
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP})
            ::sigdelset(&all, fault);
        ::pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

}  // namespace vexim

#pragma once

#include <pthread.h>
#include <signal.h>

namespace vexim {

/// Threads that are started while this lives take no signals. Signals belong to the application's
/// threads, and a SIGPIPE on one of ours would kill the process when a peer hangs up.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t all;
        ::sigfillset(&all);
        // Signals that a faulty instruction raises must still be delivered.
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

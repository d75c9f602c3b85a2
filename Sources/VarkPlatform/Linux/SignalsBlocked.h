#pragma once

#include <pthread.h>

#include <csignal>

namespace vark {

/// Signals are the business of the threads of the application. A thread starts with the mask of the one that
/// starts it, so one is held while a thread of a service is made.
class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    sigset_t before_;
};

}  // namespace vark

#include "cores/default/background_thread.h"

#include <csignal>

#include "support/debug_log.h"

namespace vantamo::core {
namespace {

// A new thread inherits the mask of the one that starts it.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
      sigdelset(&all, fault);
    }
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace

std::thread startBackgroundThread(std::function<void()> body) {
  const SignalsBlocked blocked;
  return std::thread([body = std::move(body)] {
    try {
      body();
    } catch (...) {
      support::debugLog("startBackgroundThread",
                        [] { return "A thread of the core ended by an exception"; });
    }
  });
}

}  // namespace vantamo::core

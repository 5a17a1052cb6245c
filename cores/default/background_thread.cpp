#include "cores/default/background_thread.h"

#include <csignal>

namespace vantamo::core {
namespace {

// A new thread inherits the mask of the one that starts it.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
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
  return std::thread(std::move(body));
}

}  // namespace vantamo::core

#pragma once

#include <pthread.h>

namespace vantamo::platform {

/// While one lives, the thread is not cancelled: the unwinding of a cancelled thread cannot pass
/// through code that lets nothing through. The thread ends at its next cancellation point after it.
class CancellationHeld {
 public:
  CancellationHeld() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
  CancellationHeld(const CancellationHeld&) = delete;
  CancellationHeld& operator=(const CancellationHeld&) = delete;
  ~CancellationHeld() { pthread_setcancelstate(before_, nullptr); }

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace vantamo::platform

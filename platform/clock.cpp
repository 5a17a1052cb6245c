#include "platform/clock.h"

#include <chrono>

namespace vantamo::platform {

double secondsSince1970() noexcept {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace vantamo::platform

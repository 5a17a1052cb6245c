#include "cores/default/retry_policy.h"

#include <algorithm>
#include <cmath>

namespace vantamo::core {

std::chrono::milliseconds retryDelay(const RetryPolicy& policy, unsigned failures, double uniform) {
  constexpr unsigned mostDoublings = 62;
  const int doublings = static_cast<int>(std::min(std::max(failures, 1U) - 1, mostDoublings));
  const double grown = std::ldexp(static_cast<double>(policy.base.count()), doublings);
  const double ceiling = std::min(grown, static_cast<double>(policy.cap.count()));
  return std::chrono::milliseconds(std::llround(ceiling * std::clamp(uniform, 0.0, 1.0)));
}

}  // namespace vantamo::core

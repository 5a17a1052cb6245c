#pragma once

#include <chrono>

namespace vantamo::core {

/// How long to wait between attempts to deliver.
struct RetryPolicy {
  std::chrono::milliseconds base{1000};
  std::chrono::milliseconds cap{std::chrono::minutes(15)};
};

/// The wait after the `failures`-th failure in a row (from 1): exponential backoff with full
/// jitter, that is `uniform` (0 to 1) times the smaller of `cap` and `base` * 2^(failures - 1).
[[nodiscard]] std::chrono::milliseconds retryDelay(const RetryPolicy& policy, unsigned failures,
                                                   double uniform);

}  // namespace vantamo::core

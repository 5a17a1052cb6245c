#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "vantamo/transport.h"

namespace vantamo::core {

/// How long to wait between attempts to deliver.
struct RetryPolicy {
  std::chrono::milliseconds base{1000};
  std::chrono::milliseconds cap{std::chrono::minutes(15)};
};

/// The longest wait that a server may ask for.
inline constexpr std::chrono::milliseconds longestRetryAfter = std::chrono::hours(24);

/// The wait after the `failures`-th failure in a row (from 1): exponential backoff with full
/// jitter, that is `uniform` (0 to 1) times the smaller of `cap` and `base` * 2^(failures - 1).
[[nodiscard]] std::chrono::milliseconds retryDelay(const RetryPolicy& policy, unsigned failures,
                                                   double uniform);

/// What an attempt's result says about what to do with the message.
enum class Verdict {
  delivered,      ///< 2xx
  networkFailed,  ///< no answer: again, after a backoff
  serverFailed,   ///< 3xx, 407, 408, 429, 5xx: again, after a backoff or as the server asks
  endpointWrong,  ///< 401, 403, 404, 405: every message would fare like this one, so none is lost
                  ///< by trying: sending pauses
  messageWrong,   ///< any other 4xx: this message will never be taken, the others may be
};
[[nodiscard]] Verdict judge(int status);

/// The wait that the answer asks for with `Retry-After`, in seconds or as a date, at most
/// longestRetryAfter. A date counts from the answer's own `Date`, or from `now` when it has none.
/// Nothing when there is no such header, it is malformed, or the date is past.
[[nodiscard]] std::optional<std::chrono::milliseconds> retryAfter(
    const default_core::HttpResponse& response, std::chrono::system_clock::time_point now);

}  // namespace vantamo::core

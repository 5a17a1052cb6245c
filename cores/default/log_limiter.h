#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "support/debug_log.h"

namespace vantamo::core {

/// Lets at most `most` messages a minute into the debug log, and says how many it has kept back.
/// For one thread, or under the mutex of whoever uses it.
class LogLimiter {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  static constexpr std::size_t most = 10;

  template <class MakeText>
  void log(std::string_view operation, TimePoint now, MakeText makeText,
           int line = __builtin_LINE()) {
    if (!begin_ || now - *begin_ >= std::chrono::minutes(1)) {
      begin_ = now;
      written_ = 0;
    }
    if (written_ == most) {
      ++keptBack_;
      return;
    }
    ++written_;
    support::debugLog(
        operation,
        [&] {
          std::string text = makeText();
          if (keptBack_ > 0) text += " (" + std::to_string(keptBack_) + " more were not logged)";
          return text;
        },
        line);
    keptBack_ = 0;
  }

 private:
  std::optional<TimePoint> begin_;
  std::size_t written_ = 0;
  std::size_t keptBack_ = 0;
};

}  // namespace vantamo::core

#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "cores/default/retry_policy.h"
#include "vantamo/value.h"

namespace vantamo::core {

/// The core's own settings, always valid. docs/settings.md lists the items.
struct CoreSettings {
  bool manualPost = false;
  /// Names the queue's folder in place of the executable's name.
  std::optional<std::string> applicationId;
  /// Sent as it stands in place of the core's own.
  std::optional<std::string> userAgent;
  RetryPolicy retry;
  std::chrono::milliseconds connectTimeout{std::chrono::seconds(10)};
  std::chrono::milliseconds requestTimeout{std::chrono::seconds(30)};
  /// Bounds of what is kept.
  std::size_t maxQueuedMessages = 10'000;
  std::size_t maxQueueBytes = 20UL * 1024 * 1024;
  std::size_t maxDeadLetters = 1000;
  /// Requests that may be under way at a time.
  std::size_t maxConcurrentPosts = 1;
};

/// A range of whole numbers, both ends included.
struct CountRange {
  std::size_t least = 0;
  std::size_t most = 0;

  [[nodiscard]] bool holds(std::size_t count) const { return count >= least && count <= most; }
};
inline constexpr CountRange queuedMessagesRange{1, 1'000'000};
inline constexpr CountRange queueBytesRange{64UL * 1024, 1024UL * 1024 * 1024};
inline constexpr CountRange deadLettersRange{0, 100'000};
inline constexpr CountRange concurrentPostsRange{1, 32};

struct ParsedCoreSettings {
  CoreSettings settings;
  /// One sentence for each item that could not be taken; the default holds for it.
  std::vector<std::string> complaints;
};

[[nodiscard]] ParsedCoreSettings parseCoreSettings(const Value::Map& items);

}  // namespace vantamo::core

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
};

struct ParsedCoreSettings {
  CoreSettings settings;
  /// One sentence for each item that could not be taken; the default holds for it.
  std::vector<std::string> complaints;
};

[[nodiscard]] ParsedCoreSettings parseCoreSettings(const Value::Map& items);

}  // namespace vantamo::core

#pragma once

#include <optional>
#include <string>

#include "platform/mutex.h"
#include "vantamo/text.h"

namespace vantamo::core {

/// The advertising id that the host has set, in memory only: it is the platform's to keep, and the
/// user's to reset there. Safe from any thread.
class AdvertisingId {
 public:
  /// Absent or empty clears it.
  void set(Text id);
  [[nodiscard]] std::optional<std::string> get() const;

 private:
  platform::Locked<std::optional<std::string>> id_;
};

}  // namespace vantamo::core

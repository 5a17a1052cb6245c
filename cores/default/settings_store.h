#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/mutex.h"
#include "vantamo/value.h"

namespace vantamo::core {

/// The configuration items of the modules and of the core itself. Safe from any thread.
class SettingsStore {
 public:
  /// Reads the module's items afresh from `bundleFolder`; an absent folder or file means none. A
  /// file that cannot be taken is logged, and its items count as absent.
  void load(std::string_view moduleName, const std::optional<std::string>& bundleFolder);

  [[nodiscard]] std::optional<Value> item(std::string_view key, std::string_view moduleName) const;
  [[nodiscard]] Value::Map items(std::string_view moduleName) const;

 private:
  mutable platform::Mutex mutex_;
  std::map<std::string, Value::Map, std::less<>> items_ VANTAMO_GUARDED_BY(mutex_);
};

}  // namespace vantamo::core

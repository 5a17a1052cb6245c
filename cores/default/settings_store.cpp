#include "cores/default/settings_store.h"

#include "support/debug_log.h"
#include "support/settings_file.h"

namespace vantamo::core {

void SettingsStore::load(std::string_view moduleName,
                         const std::optional<std::string>& bundleFolder) {
  support::SettingsFile file;
  if (bundleFolder && !bundleFolder->empty()) file = support::readSettingsFile(*bundleFolder);
  if (file.problem) {
    support::debugLog("-[NQCore enableModule:]", [&] {
      return support::withValue("Settings file not taken, its items count as absent: %@",
                                *file.problem);
    });
  }
  const platform::MutexLock lock(mutex_);
  items_.insert_or_assign(std::string(moduleName), std::move(file.items));
}

std::optional<Value> SettingsStore::item(std::string_view key, std::string_view moduleName) const {
  const platform::MutexLock lock(mutex_);
  const auto module = items_.find(moduleName);
  const Value* value = module == items_.end() ? nullptr : module->second.find(key);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

Value::Map SettingsStore::items(std::string_view moduleName) const {
  const platform::MutexLock lock(mutex_);
  const auto module = items_.find(moduleName);
  return module == items_.end() ? Value::Map() : module->second;
}

}  // namespace vantamo::core

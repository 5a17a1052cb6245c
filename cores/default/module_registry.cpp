#include "cores/default/module_registry.h"

namespace vantamo::core {

bool ModuleRegistry::add(std::string_view moduleName, NQLifecycleObject& module) {
  const platform::MutexLock lock(mutex_);
  return modules_.emplace(moduleName, &module).second;
}

void ModuleRegistry::remove(std::string_view moduleName) {
  const platform::MutexLock lock(mutex_);
  if (const auto entry = modules_.find(moduleName); entry != modules_.end()) modules_.erase(entry);
}

NQLifecycleObject* ModuleRegistry::find(std::string_view moduleName) const {
  const platform::MutexLock lock(mutex_);
  const auto entry = modules_.find(moduleName);
  return entry == modules_.end() ? nullptr : entry->second;
}

bool ModuleRegistry::empty() const {
  const platform::MutexLock lock(mutex_);
  return modules_.empty();
}

}  // namespace vantamo::core

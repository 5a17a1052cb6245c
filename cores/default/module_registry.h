#pragma once

#include <map>
#include <string>
#include <string_view>

#include "platform/mutex.h"
#include "vantamo/nq_core.h"

namespace vantamo::core {

/// The registered modules, by name. Safe from any thread; modules live as long as the process.
class ModuleRegistry {
 public:
  /// False when the name is taken.
  bool add(std::string_view moduleName, NQLifecycleObject& module);
  void remove(std::string_view moduleName);
  /// Null for an unknown name.
  [[nodiscard]] NQLifecycleObject* find(std::string_view moduleName) const;
  [[nodiscard]] bool empty() const;

 private:
  mutable platform::Mutex mutex_;
  std::map<std::string, NQLifecycleObject*, std::less<>> modules_ VANTAMO_GUARDED_BY(mutex_);
};

}  // namespace vantamo::core

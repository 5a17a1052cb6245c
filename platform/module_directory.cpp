#include "vantamo/module_directory.h"

#include <atomic>
#include <string>

namespace vantamo {
namespace {

// Functions under names. Only ever added to and without a lock, so that a forked child finds what
// its parent has registered.
template <class Function>
class Registry {
 public:
  struct Entry {
    std::string name;
    Function function;
    const Entry* older;
  };

  constexpr Registry() = default;

  void add(std::string_view name, Function function) {
    if (const Entry* known = find(name); known != nullptr && known->function == function) return;
    auto* const entry = new Entry{std::string(name), function, newest_.load()};
    while (!newest_.compare_exchange_weak(entry->older, entry)) continue;
  }
  [[nodiscard]] const Entry* newest() const { return newest_.load(); }
  [[nodiscard]] const Entry* find(std::string_view name) const {
    const Entry* entry = newest();
    while (entry != nullptr && entry->name != name) entry = entry->older;
    return entry;
  }

 private:
  std::atomic<const Entry*> newest_{nullptr};
};

constinit Registry<ModuleInstance> classes;
constinit Registry<ModuleErasure> erasures;

bool erases(ModuleErasure eraseUserData) noexcept {
  try {
    return eraseUserData();
  } catch (...) {  // one module's failure must not keep the others' data
    return false;
  }
}

}  // namespace

void registerModuleClass(std::string_view moduleName, ModuleInstance sharedInstance) {
  classes.add(moduleName, sharedInstance);
}

ModuleInstance moduleClass(std::string_view moduleName) {
  const auto* const entry = classes.find(moduleName);
  return entry == nullptr ? nullptr : entry->function;
}

void registerModuleErasure(std::string_view moduleName, ModuleErasure eraseUserData) {
  erasures.add(moduleName, eraseUserData);
}

bool eraseModuleData() {
  bool all = true;
  for (const auto* entry = erasures.newest(); entry != nullptr; entry = entry->older) {
    const bool isCurrent = erasures.find(entry->name) == entry;
    if (isCurrent && !erases(entry->function)) all = false;
  }
  return all;
}

}  // namespace vantamo

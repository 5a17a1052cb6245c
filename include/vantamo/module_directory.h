#pragma once

#include <string_view>

class NQLifecycleObject;

namespace vantamo {

/// Answers the one instance of a module class, creating it on first use.
using ModuleInstance = NQLifecycleObject& (*)();

/// Makes a module class known under its module name; a later registration of the same name wins.
/// A module registers itself before it asks the core to enable it. Safe from any thread.
void registerModuleClass(std::string_view moduleName, ModuleInstance sharedInstance);

/// The class registered under `moduleName`, or null. Safe from any thread.
[[nodiscard]] ModuleInstance moduleClass(std::string_view moduleName);

}  // namespace vantamo

#pragma once

#include <string_view>

#include "vantamo/export.h"

class NQLifecycleObject;

/// @file
/// What a core finds of the modules. A forked child finds the same as its parent.
namespace vantamo {

/// Answers the one instance of a module class, creating it on first use.
using ModuleInstance = NQLifecycleObject& (*)();

/// Makes a module class known under its module name; a later registration of the same name wins.
/// A module registers itself before it asks the core to enable it. Safe from any thread.
VANTAMO_EXPORT void registerModuleClass(std::string_view moduleName, ModuleInstance sharedInstance);

/// Removes what a module keeps of the user; true when nothing is left.
using ModuleErasure = bool (*)();

/// Makes known how a module erases its user's data; a later registration of the same name wins. A
/// module registers before the host can ask for it: when the program is loaded, say. Safe from any
/// thread.
VANTAMO_EXPORT void registerModuleErasure(std::string_view moduleName, ModuleErasure eraseUserData);

/// Has every registered module erase its user's data, on this thread. True when all have answered
/// true; what a module throws counts as false. A core that erases its own data calls this, without
/// holding a lock. Safe from any thread.
VANTAMO_EXPORT bool eraseModuleData();

/// The class registered under `moduleName`, or null. Safe from any thread.
[[nodiscard]] VANTAMO_EXPORT ModuleInstance moduleClass(std::string_view moduleName);

}  // namespace vantamo

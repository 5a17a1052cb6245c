#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/core_export.h"

namespace vantamo::platform {

/// The application's main bundle: what the host has set, else the folder of the executable. Throws
/// std::exception when the system does not tell where that is.
[[nodiscard]] VANTAMO_CORE_EXPORT std::string mainBundleFolder();

/// The folder of the executable itself, whatever the host has set.
[[nodiscard]] std::string executableFolder();
/// The file name of the executable.
[[nodiscard]] VANTAMO_CORE_EXPORT std::string executableName();

/// The bundle that contains the code at `symbol`: the folder of its shared object, or of the
/// executable when it is linked in. Absent when the system does not know.
[[nodiscard]] std::optional<std::string> bundleFolderOfSymbol(const void* symbol);

/// `folder`/`name`.`type` when a folder stands there.
[[nodiscard]] VANTAMO_CORE_EXPORT std::optional<std::string> pathForResource(
    const std::string& folder, std::string_view name, std::string_view type);

}  // namespace vantamo::platform

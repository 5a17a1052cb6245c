#pragma once

#include <string>

#include "platform/core_export.h"

namespace vantamo::platform {

/// The user's caches directory, without a slash at its end: what the host has set, else
/// $XDG_CACHE_HOME, else ~/.cache. Throws std::runtime_error when none of them is known.
[[nodiscard]] VANTAMO_CORE_EXPORT std::string cachesDirectory();

}  // namespace vantamo::platform

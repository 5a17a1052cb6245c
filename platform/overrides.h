#pragma once

#include <memory>

#include "vantamo/platform.h"

namespace vantamo::platform {

/// What the host has set last; never null. The result stays valid while it is held.
[[nodiscard]] std::shared_ptr<const PlatformOverrides> overrides();

}  // namespace vantamo::platform

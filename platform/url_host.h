#pragma once

#include <optional>
#include <string>

#include "platform/core_export.h"

namespace vantamo::platform {

/// The host of a URL, an IPv6 address without its brackets. Absent when `url` is not a URL; empty
/// when it has no host.
[[nodiscard]] VANTAMO_CORE_EXPORT std::optional<std::string> urlHost(const std::string& url);

}  // namespace vantamo::platform

#pragma once

#include <string>

namespace vantamo::core {

/// The core's own user agent: its name and version, and the system it runs on.
[[nodiscard]] std::string defaultUserAgent();

}  // namespace vantamo::core

#pragma once

namespace vantamo::platform {

/// The current date as seconds since 1970-01-01 UTC, with its fraction.
[[nodiscard]] double secondsSince1970() noexcept;

}  // namespace vantamo::platform

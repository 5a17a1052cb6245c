#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vantamo::tools {

/// `text` as a terminal may show it: control characters, those beyond ASCII too, as \xNN. Malformed
/// UTF-8 becomes U+FFFD.
[[nodiscard]] std::string printable(std::string_view text);

/// Milliseconds since 1970 in UTC, as 2026-01-31T12:34:56.789Z.
[[nodiscard]] std::string isoTime(std::int64_t milliseconds);

}  // namespace vantamo::tools

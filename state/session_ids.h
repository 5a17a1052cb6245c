#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vantamo::state {

/// Reported in place of the stored visitor id in anonymous mode.
inline constexpr std::string_view anonymousVisitorId = "1000000000000003";

/// A visitor id from two 32-bit draws: 23 decimal digits beginning with "10".
[[nodiscard]] std::string visitorIdFrom(std::uint32_t first, std::uint32_t second);
/// A session id from one 32-bit draw: 10 decimal digits.
[[nodiscard]] std::string sessionIdFrom(std::uint32_t draw);

}  // namespace vantamo::state

#pragma once

#include <charconv>
#include <string>
#include <system_error>

namespace vantamo::tools {

/// Whether a wait of so many seconds can be asked for.
[[nodiscard]] constexpr bool isWaitingTime(double seconds) {
  return seconds >= 0 && seconds <= 1e6;
}

/// What is wrong with an argument that tells how long to wait; empty when nothing is.
[[nodiscard]] inline std::string checkSeconds(const std::string& text) {
  double seconds = -1;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, seconds);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == end;
  return isNumber && isWaitingTime(seconds)
             ? std::string()
             : "SECONDS must be a number from 0 to 1000000, not " + text;
}

}  // namespace vantamo::tools

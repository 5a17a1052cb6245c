#include "support/debug_log.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "platform/environment.h"
#include "platform/system_log.h"

namespace vantamo::support {

namespace {

constexpr std::size_t longestValue = 1000;

// At most `longestValue` bytes, whole characters of well-formed UTF-8.
std::string_view cut(std::string_view value) {
  if (value.size() <= longestValue) return value;
  constexpr std::size_t mostContinuations = 3;
  std::size_t end = longestValue;
  const auto continues = [&] { return (static_cast<unsigned char>(value[end]) & 0xC0U) == 0x80U; };
  while (end > longestValue - mostContinuations && continues()) --end;
  return value.substr(0, end);
}

// What a message shows of a value, which may be anybody's: no control character of it reaches the
// log, so that no text can pass for a line of its own.
std::string shown(std::string_view value) {
  constexpr std::string_view digits = "0123456789abcdef";
  const std::string_view head = cut(value);
  std::string text;
  text.reserve(head.size());
  for (const char character : head) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x20 && byte != 0x7F) {
      text += character;
    } else {
      text.append("\\x").append(1, digits[byte >> 4U]).append(1, digits[byte & 0xFU]);
    }
  }
  return head.size() < value.size() ? text + "..." : text;
}

}  // namespace

int debugLevelFromEnvironment() noexcept {
  const char* text = platform::environmentVariable("VANTAMO_DEBUG");
  if (text == nullptr) return 0;
  const long level = std::strtol(text, nullptr, 10);
  return static_cast<int>(std::clamp<long>(level, INT_MIN, INT_MAX));
}

void writeDebugMessage(std::string_view operation, int line, std::string_view text) {
  std::string message = "\n~\nVantamo:\t{ ";
  message.append(operation).append(" } { ").append(std::to_string(line)).append(" } \n~~\n");
  message.append(text).append("\n~~~\n\n");
  platform::systemLog(message);
}

std::string withValue(std::string_view format, std::string_view value) {
  std::string text(format);
  const std::size_t at = text.find("%@");
  if (at != std::string::npos) text.replace(at, 2, shown(value));
  return text;
}

std::string withValues(std::string_view format, std::string_view first, std::string_view second) {
  const std::size_t tail = std::min(format.find("%@"), format.size());
  const std::size_t rest = std::min(tail + 2, format.size());
  return withValue(format.substr(0, rest), first) + withValue(format.substr(rest), second);
}

}  // namespace vantamo::support

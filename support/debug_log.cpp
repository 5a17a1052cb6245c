#include "support/debug_log.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "platform/environment.h"
#include "platform/system_log.h"

namespace vantamo::support {

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
  if (at != std::string::npos) text.replace(at, 2, value);
  return text;
}

std::string withValues(std::string_view format, std::string_view first, std::string_view second) {
  const std::size_t tail = std::min(format.find("%@"), format.size());
  const std::size_t rest = std::min(tail + 2, format.size());
  return withValue(format.substr(0, rest), first) + withValue(format.substr(rest), second);
}

}  // namespace vantamo::support

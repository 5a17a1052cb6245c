#pragma once

#include <atomic>
#include <exception>
#include <string>
#include <string_view>

#include "platform/core_export.h"

namespace vantamo::support {

/// The number in the environment variable VANTAMO_DEBUG; absent or not a number gives 0.
[[nodiscard]] VANTAMO_CORE_EXPORT int debugLevelFromEnvironment() noexcept;
/// Writes one message of the debug log to the system log, framed with operation and line.
VANTAMO_CORE_EXPORT void writeDebugMessage(std::string_view operation, int line,
                                           std::string_view text);

/// The one way a diagnostic message is written. `operation` is the full operation name with its
/// class and sign, "-[VTMod start]"; `makeText` builds the message and is called only while
/// debug logging is on. Never throws what derives from std::exception: a message that cannot be
/// built is not worth the host's event.
///
///   debugLog("-[VTMod stop]", [] { return "module already disabled"; });
///
/// Each logging place is a lambda and so has an instantiation, and a cached level, of its own.
template <class MakeText>
void debugLog(std::string_view operation, MakeText&& makeText, int line = __builtin_LINE()) {
  static std::atomic<int> zelDebug{-1};
  int level = zelDebug.load(std::memory_order_relaxed);
  if (level == -1) {
    level = debugLevelFromEnvironment();
    zelDebug.store(level, std::memory_order_relaxed);
  }
  if (level <= 0) return;
  try {
    writeDebugMessage(operation, line, makeText());
  } catch (const std::exception&) {
    return;
  }
}

/// `format` with its one "%@" replaced by `value`: its control characters as \xNN, and what is
/// longer than 1000 bytes cut, with "..." at its end.
[[nodiscard]] VANTAMO_CORE_EXPORT std::string withValue(std::string_view format,
                                                        std::string_view value);
/// `format` with its first two "%@" replaced, in order.
[[nodiscard]] VANTAMO_CORE_EXPORT std::string withValues(std::string_view format,
                                                         std::string_view first,
                                                         std::string_view second);

}  // namespace vantamo::support

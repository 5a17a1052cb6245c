#pragma once

#include <exception>
#include <utility>

#include "support/debug_log.h"

namespace vantamo::support {

/// Runs `body` so that nothing derived from std::exception leaves it: such an exception is logged
/// as "Exception: ..." and the result reached so far is returned. Anything else that is thrown
/// passes through unchanged.
///
///   return guarded("-[VTMod stop]", false, [&](bool& result) { result = ...; });
template <class Result, class Body>
Result guarded(std::string_view operation, Result result, Body&& body,
               int line = __builtin_LINE()) {
  try {
    std::forward<Body>(body)(result);
  } catch (const std::exception& exception) {
    debugLog(
        operation, [&] { return withValue("Exception: %@", exception.what()); }, line);
  }
  return result;
}

/// The same for an operation without a result.
template <class Body>
void guarded(std::string_view operation, Body&& body, int line = __builtin_LINE()) {
  try {
    std::forward<Body>(body)();
  } catch (const std::exception& exception) {
    debugLog(
        operation, [&] { return withValue("Exception: %@", exception.what()); }, line);
  }
}

}  // namespace vantamo::support

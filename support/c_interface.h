#pragma once

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/cancellation.h"
#include "support/guarded.h"
#include "vantamo/vantamo_c.h"

/// What the functions of vantamo_c.h have in common. Inline throughout: the default core's
/// functions are in a library of their own.
namespace vantamo::support {

/// Runs `body` so that nothing leaves it: an operation called from C. `result` is what is left when
/// it fails.
template <class Result, class Body>
Result calledFromC(const char* operation, Result result, Body&& body) noexcept {
  const platform::CancellationHeld held;
  try {
    return guarded(operation, std::move(result), std::forward<Body>(body));
  } catch (...) {
    debugLog(operation, [] { return "Exception: not a std::exception"; });
  }
  return result;
}

/// Whether a struct of the caller's can be looked at; the log tells when it cannot.
template <class Struct>
bool isUsable(const char* operation, const Struct* given) {
  constexpr std::size_t mostBytes = 4096;
  if (given == nullptr) {
    debugLog(operation, [] { return "The struct is null"; });
    return false;
  }
  const std::size_t size = given->size;
  if (size > sizeof(std::size_t) && size % alignof(Struct) == 0 && size <= mostBytes) return true;
  debugLog(operation, [&] {
    return withValue("The struct's size is that of no version: %@", std::to_string(size));
  });
  return false;
}

/// What the caller's struct holds of the members that this library knows; the others are absent.
template <class Struct>
std::optional<Struct> knownPart(const char* operation, const Struct* given) {
  if (!isUsable(operation, given)) return std::nullopt;
  Struct known{};
  std::memcpy(&known, given, std::min(given->size, sizeof(Struct)));
  return known;
}

/// A copy for the caller to give back with vantamo_free(); null when there is no memory.
inline char* handedOut(std::string_view text) noexcept {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) return nullptr;
  std::copy(text.begin(), text.end(), copy);
  copy[text.size()] = '\0';
  return copy;
}

inline std::optional<std::string> copied(const char* text) {
  return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

/// A host's context, released with the last copy.
inline std::shared_ptr<void> ownedContext(void* context, vantamo_release release) {
  return {context, [release](void* released) {
            if (release == nullptr) return;
            calledFromC("release", 0, [&](int&) { release(released); });
          }};
}

}  // namespace vantamo::support

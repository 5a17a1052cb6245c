#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/core_export.h"

namespace vantamo::platform {

/// A uniform 32-bit random number; safe from any thread, needs no seed.
[[nodiscard]] VANTAMO_CORE_EXPORT std::uint32_t random32() noexcept;

/// A random UUID (version 4), as text. To ask the system for each one costs as much as all the rest
/// of an event, so bytes are had in advance; a forked child has others. Safe from any thread.
class VANTAMO_CORE_EXPORT Uuid {
 public:
  Uuid();

  [[nodiscard]] std::string_view view() const { return {text_.data(), size}; }

 private:
  static constexpr std::size_t size = 36;

  std::array<char, size + 1> text_{};
};
[[nodiscard]] inline std::string randomUuid() { return std::string(Uuid().view()); }

}  // namespace vantamo::platform

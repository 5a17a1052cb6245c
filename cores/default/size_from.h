#pragma once

#include <cstddef>
#include <limits>
#include <utility>

namespace vantamo::core {

/// The std::size_t nearest to a number that a file or the system has told: 0 for a negative one,
/// the largest for one that needs more bits than this system's sizes have.
template <class Number>
[[nodiscard]] constexpr std::size_t sizeFrom(Number number) noexcept {
  if (std::in_range<std::size_t>(number)) return static_cast<std::size_t>(number);
  return std::cmp_less(number, 0) ? 0 : std::numeric_limits<std::size_t>::max();
}

}  // namespace vantamo::core

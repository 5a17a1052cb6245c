#pragma once

#include <cstdint>
#include <string>

namespace vantamo::platform {

/// A uniform 32-bit random number; safe from any thread, needs no seed.
[[nodiscard]] std::uint32_t random32() noexcept;
/// A random UUID (version 4), as text.
[[nodiscard]] std::string randomUuid();

}  // namespace vantamo::platform

#pragma once

#include <string>
#include <string_view>

namespace vantamo::platform {

/// The SHA-1 digest of `bytes` as 40 lower-case hexadecimal digits.
[[nodiscard]] std::string sha1Hex(std::string_view bytes);

}  // namespace vantamo::platform

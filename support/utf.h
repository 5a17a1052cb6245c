#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vantamo::support {

/// `text` as well-formed UTF-8: each ill-formed sequence becomes one U+FFFD.
[[nodiscard]] std::string wellFormedUtf8(std::string_view text);
/// The same without a copy of what is well-formed: `text` itself, or a view of `repaired`, which is
/// set then.
[[nodiscard]] std::string_view wellFormedView(std::string_view text, std::string& repaired);
/// Number of UTF-16 code units that `text` takes, ill-formed sequences counted as one U+FFFD each.
[[nodiscard]] std::size_t utf16Length(std::string_view text);

}  // namespace vantamo::support

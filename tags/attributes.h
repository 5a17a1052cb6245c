#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tags/event_format.h"
#include "vantamo/text.h"

namespace vantamo::tags {

/// The list's elements joined with "-_-"; "" for an absent or empty list.
[[nodiscard]] std::string joined(TextList list);
/// The string split at every "-_-", empty pieces kept; an empty list for an absent or empty string.
[[nodiscard]] std::vector<std::string> split(Text text);
/// SHA-1 of the text's UTF-8 bytes, as 40 lower-case hexadecimal digits.
[[nodiscard]] std::string digestOf(Text text);

/// Calls `add(key, value)` with each numbered attribute that goes onto the wire.
template <class Add>
void forEachAttribute(TextList list, int code, Add&& add) {
  std::string key = std::string(attributePrefix(code)).append(attributeInfix(code));
  const std::size_t stem = key.size();
  const std::size_t count = std::min(list.size(), mostAttributes);
  for (std::size_t i = 0; i < count; ++i) {
    key.resize(stem);
    key += std::to_string(i + 1);
    add(std::string_view(key), list[i]);
  }
}

}  // namespace vantamo::tags

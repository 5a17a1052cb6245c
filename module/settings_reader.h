#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vantamo::module {

/// The module's configuration item `key` as a string. An item of another kind is named in the log,
/// under `operation`, and counts as absent; so does a null, without a word.
[[nodiscard]] std::optional<std::string> stringItem(std::string_view operation,
                                                    std::string_view key);

}  // namespace vantamo::module

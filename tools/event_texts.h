#pragma once

#include <string_view>

/// What docs/wire-format.md says of events and arguments in words.
namespace vantamo::tools {

/// When an app fires the event. Throws std::out_of_range for an event without a text.
[[nodiscard]] std::string_view purposeOf(std::string_view event);
/// What an argument of the event holds. Throws std::out_of_range for one without a text.
[[nodiscard]] std::string_view meaningOf(std::string_view event, std::string_view argument);
/// A value for an example. Throws std::out_of_range for an argument without one.
[[nodiscard]] std::string_view sampleOf(std::string_view argument);

}  // namespace vantamo::tools

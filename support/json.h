#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/core_export.h"
#include "vantamo/value.h"

namespace vantamo::support {

/// Thrown for text that is not one JSON value; the message tells line, column and reason.
class VANTAMO_CORE_EXPORT JsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The one JSON value that `text` holds (UTF-8). An integer beyond 64 bits becomes a real; of equal
/// keys the last one wins; nesting deeper than 512 is an error.
[[nodiscard]] VANTAMO_CORE_EXPORT Value parseJson(std::string_view text);

/// `value` as compact JSON, members in their order. Always well-formed UTF-8.
[[nodiscard]] VANTAMO_CORE_EXPORT std::string writeJson(const Value& value);

}  // namespace vantamo::support

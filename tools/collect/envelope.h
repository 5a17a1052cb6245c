#pragma once

#include <string_view>

#include "vantamo/value.h"

/// What is in every tag, whatever the event.
namespace vantamo::tools::collect {

class Problems;

/// What a key of every tag means, in words; empty for any other key.
[[nodiscard]] std::string_view envelopeMeaning(std::string_view key);

/// Holds the keys of every tag against what they must be. `now` is in seconds since 1970.
void checkEnvelope(const Value::Map& tag, bool hasMarketingCode, double now, Problems& problems);

/// Whether `text` is whole seconds since 1970.
[[nodiscard]] bool isTime(std::string_view text);

}  // namespace vantamo::tools::collect

#pragma once

#include <optional>

#include "tools/collect/tag_check.h"

namespace vantamo::tools::collect {

/// The call that makes such a tag, as `vantamo replay` takes it: "call", then the facade's argument
/// names. Technical properties are the page view that they stand for. What a tag cannot tell stays
/// out: an argument that was left out from one given as "", and attributes past the 50th. Nothing
/// for what is no known event.
[[nodiscard]] std::optional<Value::Map> replayCall(const TagReading& reading);

}  // namespace vantamo::tools::collect

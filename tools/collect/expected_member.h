#pragma once

#include <string>
#include <vector>

#include "tools/collect/tag_store.h"

namespace vantamo::tools::collect {

/// One member in which a tag is not as expected; the values as JSON, "absent" for none.
struct Difference {
  std::string name;
  std::string expected;
  std::string actual;
};

/// The call that made a tag; empty for what is no known event.
[[nodiscard]] Value::Map callOf(const StoredTag& tag);

/// In what the tag differs from what is expected; empty when it fits. `call` is the tag's own. What
/// is named by its argument may be absent or empty alike, as the wire does not tell these apart.
[[nodiscard]] std::vector<Difference> differences(const Value::Map& expected, const StoredTag& tag,
                                                  const Value::Map& call);

}  // namespace vantamo::tools::collect

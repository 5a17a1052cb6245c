#pragma once

namespace vantamo::test {

/// How often this program has waited for the disk.
[[nodiscard]] long syncCount();

}  // namespace vantamo::test

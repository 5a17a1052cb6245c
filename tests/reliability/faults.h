#pragma once

namespace vantamo::test {

/// How often this program has waited for the disk, and written below a queue folder.
[[nodiscard]] long syncCount();
[[nodiscard]] long writeCount();

}  // namespace vantamo::test

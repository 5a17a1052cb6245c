#pragma once

namespace vantamo::tools {

/// Whether standard output may be coloured: it is a terminal that can show colours, and nobody has
/// said no (NO_COLOR).
[[nodiscard]] bool wantsColours();

/// Whether standard error may show a line that is written anew again and again.
[[nodiscard]] bool wantsProgress();

}  // namespace vantamo::tools

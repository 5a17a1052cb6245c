#pragma once

#include <string_view>

namespace vantamo::platform {

/// Writes `text`, as it stands and in one piece, to the host's log sink, else to the system log
/// (standard error). A failure is ignored: there is nowhere left to tell it.
void systemLog(std::string_view text) noexcept;

}  // namespace vantamo::platform

#pragma once

#include "platform/core_export.h"

namespace vantamo::platform {

/// The process environment's value of `name`, or null when absent. In a privileged process the
/// environment is not trusted and every name is absent.
[[nodiscard]] VANTAMO_CORE_EXPORT const char* environmentVariable(const char* name) noexcept;

/// Whether the process has rights that whoever started it may lack (set-user-id and the like).
[[nodiscard]] VANTAMO_CORE_EXPORT bool isPrivilegedProcess() noexcept;

}  // namespace vantamo::platform

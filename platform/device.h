#pragma once

#include <optional>
#include <string>

#include "vantamo/platform.h"

namespace vantamo::platform {

/// Size of the main screen in logical points; 0 by 0 without one.
[[nodiscard]] ScreenSize mainScreenSize();
/// The hardware machine identifier, as `uname` has it; empty when the system does not tell.
[[nodiscard]] std::string machineName();
/// What the host has set, else tablet for the chassis type of a tablet, else phone.
[[nodiscard]] DeviceIdiom userInterfaceIdiom();
/// The operating system's version: what the host has set, else VERSION_ID of os-release; absent
/// when the system does not tell.
[[nodiscard]] std::optional<std::string> systemVersion();

}  // namespace vantamo::platform

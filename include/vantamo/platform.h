#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "vantamo/export.h"

namespace vantamo {

/// Width and height of the main screen in logical points (not pixels).
struct ScreenSize {
  double width = 0;   ///< In logical points.
  double height = 0;  ///< In logical points.
};

/// What the operating system's notion of the current device's user interface is.
enum class DeviceIdiom { phone = 0, tablet = 1 };

/// What a wrapper around the host application knows better than the operating system's plain
/// interfaces. Every member is optional; an absent one leaves the platform's own answer.
struct PlatformOverrides {
  /// The user's caches directory (default: $XDG_CACHE_HOME, else ~/.cache).
  std::optional<std::string> cachesDirectory{};
  /// The application's main bundle folder (default: the folder of the executable).
  std::optional<std::string> mainBundleFolder{};
  /// The main screen (default: 0 by 0, as on a machine without one).
  std::optional<ScreenSize> screenSize{};
  /// Phone or tablet (default: from the chassis type).
  std::optional<DeviceIdiom> deviceIdiom{};
  /// The version of the operating system (default: VERSION_ID of os-release).
  std::optional<std::string> systemVersion{};
  /// Receives every log message, whole, on the thread that logs (default: standard error). What it
  /// throws is swallowed. It must not call back into the library.
  std::function<void(std::string_view)> logSink{};
};

/// Puts `overrides` in place of those set before. Safe from any thread; call it before
/// Vantamo::startup() so that all of a run sees the same answers.
VANTAMO_EXPORT void setPlatformOverrides(PlatformOverrides overrides);

}  // namespace vantamo

#pragma once

#include <optional>
#include <string>

#include "platform/core_export.h"
#include "vantamo/value.h"

namespace vantamo::support {

/// What one settings file holds.
struct SettingsFile {
  /// The items; none when the file is absent or has a problem.
  Value::Map items;
  /// Why a file that is there could not be taken: names the file, and the line where there is one.
  std::optional<std::string> problem;
};

/// Reads `settings.json` of a settings bundle: one JSON object. An absent file means no items.
/// At most 256 KiB are taken.
[[nodiscard]] VANTAMO_CORE_EXPORT SettingsFile readSettingsFile(const std::string& bundleFolder);

}  // namespace vantamo::support

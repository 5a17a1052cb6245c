#include "module/settings_reader.h"

#include "module/vt_mod.h"
#include "support/debug_log.h"

namespace vantamo::module {

std::optional<std::string> stringItem(std::string_view operation, std::string_view key) {
  const auto item = NQCore::sharedInstance().getConfigItem(key, VTMod::moduleName);
  if (!item || item->isNull()) return {};
  if (const std::string* text = item->ifString()) return *text;
  support::debugLog(operation, [&] {
    return support::withValues("Setting %@ must be a string but is of kind %@; it counts as absent",
                               key, item->kind());
  });
  return {};
}

}  // namespace vantamo::module

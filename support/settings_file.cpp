#include "support/settings_file.h"

#include "platform/file.h"
#include "support/json.h"

namespace vantamo::support {

SettingsFile readSettingsFile(const std::string& bundleFolder) {
  constexpr std::size_t sizeLimit = 256UL * 1024;
  const std::string path = bundleFolder + "/settings.json";
  const auto failed = [&path](const std::string& reason) {
    return SettingsFile{{}, path + ": " + reason};
  };
  if (platform::isAbsent(path)) return {};
  const auto text = platform::readFile(path, sizeLimit);
  if (!text) return failed("cannot be read, is not a plain file, or is larger than 256 KiB");
  try {
    const Value value = parseJson(*text);
    if (value.isMap()) return {value.map(), {}};
    return failed("line 1: expected one JSON object, found " + std::string(value.kind()));
  } catch (const JsonError& error) {
    return failed(error.what());
  }
}

}  // namespace vantamo::support

#include "platform/device.h"

#include <sys/utsname.h>

#include <fstream>
#include <string_view>

#include "platform/overrides.h"

namespace vantamo::platform {
namespace {

// A value of os-release: plain, or in single or double quotes.
std::string unquoted(std::string value) {
  const bool quoted = value.size() >= 2 && value.front() == value.back() &&
                      (value.front() == '"' || value.front() == '\'');
  return quoted ? value.substr(1, value.size() - 2) : value;
}

}  // namespace

ScreenSize mainScreenSize() { return overrides()->screenSize.value_or(ScreenSize{}); }

std::string machineName() {
  utsname system{};
  return uname(&system) == 0 ? system.machine : "";
}

DeviceIdiom userInterfaceIdiom() {
  if (const auto host = overrides(); host->deviceIdiom) return *host->deviceIdiom;
  constexpr int tabletChassis = 30;  // "Tablet" in the system-management tables
  int chassis = 0;
  std::ifstream("/sys/class/dmi/id/chassis_type") >> chassis;
  return chassis == tabletChassis ? DeviceIdiom::tablet : DeviceIdiom::phone;
}

std::optional<std::string> systemVersion() {
  if (const auto host = overrides(); host->systemVersion) return host->systemVersion;
  for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    std::ifstream file(path);
    constexpr std::string_view key = "VERSION_ID=";
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with(key)) return unquoted(line.substr(key.size()));
    }
  }
  return std::nullopt;
}

}  // namespace vantamo::platform

#include "platform/directories.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "platform/environment.h"
#include "platform/overrides.h"

namespace vantamo::platform {
namespace {

// Only absolute paths count: a relative one would follow the host's working directory.
bool isAbsolute(const char* path) { return path != nullptr && *path == '/'; }

std::string homeDirectory() {
  if (const char* home = environmentVariable("HOME"); isAbsolute(home)) return home;
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 16384> buffer{};
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      isAbsolute(found->pw_dir)) {
    return found->pw_dir;
  }
  throw std::runtime_error("the user has no caches directory");
}

std::string withoutSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

std::string cachesDirectory() {
  if (const auto host = overrides(); host->cachesDirectory && !host->cachesDirectory->empty()) {
    return withoutSlash(*host->cachesDirectory);
  }
  const char* configured = environmentVariable("XDG_CACHE_HOME");
  if (isAbsolute(configured)) return withoutSlash(configured);
  return withoutSlash(homeDirectory() + "/.cache");
}

}  // namespace vantamo::platform

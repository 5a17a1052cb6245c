#include "platform/bundle.h"

#include <dlfcn.h>
#include <link.h>

#include <filesystem>

#include "platform/overrides.h"

namespace vantamo::platform {
namespace fs = std::filesystem;

namespace {

fs::path executable() { return fs::read_symlink("/proc/self/exe"); }

}  // namespace

std::string mainBundleFolder() {
  const auto host = overrides();
  return host->mainBundleFolder ? *host->mainBundleFolder : executableFolder();
}

std::string executableFolder() { return executable().parent_path().string(); }
std::string executableName() { return executable().filename().string(); }

std::optional<std::string> bundleFolderOfSymbol(const void* symbol) {
  Dl_info info{};
  link_map* object = nullptr;
  if (dladdr1(symbol, &info, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP) == 0) return {};
  // The executable's own entry carries no path.
  if (object == nullptr || object->l_name == nullptr || *object->l_name == '\0') {
    return executableFolder();
  }
  std::error_code error;
  const fs::path path = fs::absolute(object->l_name, error);
  return error ? std::nullopt : std::optional(path.parent_path().string());
}

std::optional<std::string> pathForResource(const std::string& folder, std::string_view name,
                                           std::string_view type) {
  const fs::path path = fs::path(folder) / (std::string(name) + "." + std::string(type));
  std::error_code error;
  return fs::is_directory(path, error) ? std::optional(path.string()) : std::nullopt;
}

}  // namespace vantamo::platform

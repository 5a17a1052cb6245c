#include <vantamo/platform.h>
#include <vantamo/vantamo.h>

#include <filesystem>

int main() {
  vantamo::setPlatformOverrides(
      {.cachesDirectory = (std::filesystem::current_path() / "host-data").string()});
  return Vantamo::startup() && Vantamo::setPRWAdvertisingId("ad") &&
                 Vantamo::firePageView({.pageId = "home"}) && Vantamo::shutdown()
             ? 0
             : 1;
}

// A host of the default core, built in each way a host may be. It needs no network: its transport
// takes the requests over.

#include <vantamo/default_core.h>
#include <vantamo/platform.h>
#include <vantamo/value.h>
#include <vantamo/vantamo.h>
#include <vantamo/version.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

namespace {

using vantamo::default_core::HttpRequest;
using vantamo::default_core::HttpResponse;

class Endpoint final : public vantamo::default_core::Transport {
 public:
  HttpResponse post(const HttpRequest&) override { return {.status = 204}; }
  void interrupt() noexcept override {}
};

bool delivers(const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder / "VTMod.bundle");
  std::ofstream(folder / "VTMod.bundle" / "settings.json")
      << R"({"PostMessageUrl":"http://127.0.0.1/collect","CaptureAllOfflineTags":1})";
  vantamo::setPlatformOverrides(
      {.cachesDirectory = folder.string(), .mainBundleFolder = folder.string()});

  return vantamo::default_core::setOptions({.transport = std::make_shared<Endpoint>()}) &&
         Vantamo::startup() && Vantamo::firePageView({.pageId = "home", .category = "start"}) &&
         vantamo::default_core::flush(std::chrono::minutes(1)) &&
         vantamo::default_core::stats().delivered == 1 && Vantamo::shutdown();
}

// What the library throws is known in the program by its type.
bool knowsTheExceptions() {
  try {
    static_cast<void>(vantamo::Value(1).string());
  } catch (const vantamo::ValueTypeError&) {
    return true;
  }
  return false;
}

}  // namespace

int main() {
  const std::filesystem::path folder = std::filesystem::current_path() / "host-data";
  std::filesystem::remove_all(folder);
  const bool good = delivers(folder) && knowsTheExceptions() &&
                    Vantamo::libraryVersion() == VANTAMO_VERSION_STRING;
  std::puts(good ? "delivered" : "not delivered; set VANTAMO_DEBUG=1 to see why");
  return good ? 0 : 1;
}

// The smallest host there can be, for the size that the library adds to a program: without it, with
// the module over a core of the host's own, and with the default core.

#include <cstdio>

#if VANTAMO_SIZE_OF > 0
#include "vantamo/vantamo.h"
#endif

#if VANTAMO_SIZE_OF == 1
#include "vantamo/module_directory.h"
#include "vantamo/nq_core.h"

namespace {

class OwnCore final : public NQCore {
 public:
  bool enableModule(std::string_view name) override {
    const auto module = vantamo::moduleClass(name);
    return module != nullptr && module().enable();
  }
  bool disableModule(std::string_view name) override {
    const auto module = vantamo::moduleClass(name);
    return module != nullptr && module().disable();
  }
  std::optional<vantamo::Value> getConfigItem(std::string_view, std::string_view) override {
    return {};
  }
  void postMessage(std::unique_ptr<NQMessage> message, std::string_view) override {
    std::fwrite(message->jsonText().view().data(), 1, message->jsonText().view().size(), stdout);
  }
  void flushQueues() override {}
  void setUserAgentFromBrowser() override {}
  bool setNQAdvertisingId(vantamo::Text) override { return false; }
  std::optional<std::string> getNQAdvertisingId() override { return {}; }
};

}  // namespace

NQCore& NQCore::sharedInstance() {
  static OwnCore core;
  return core;
}
vantamo::Value::Map NQMessage::jsonDictionary() { return {}; }
std::shared_ptr<NQReachability> NQReachability::reachabilityWithHostName(std::string_view) {
  return nullptr;
}
#endif

int main() {
#if VANTAMO_SIZE_OF > 0
  Vantamo::startup();
  const bool fired = Vantamo::firePageView({.pageId = "home"});
  Vantamo::shutdown();
  std::puts(fired ? "fired" : "not fired");
#endif
  return 0;
}

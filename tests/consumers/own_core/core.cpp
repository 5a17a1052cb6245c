// A core of the host's own: it prints each tag. A real one would keep them until they are
// delivered.

#include <vantamo/module_directory.h>
#include <vantamo/nq_core.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace {

class AlwaysReachable final : public NQReachability {
 public:
  bool startNotifier() override { return true; }
  bool stopNotifier() override { return true; }
  long long currentReachabilityStatus() override { return reachableViaWiFi; }
};

class PrintingCore final : public NQCore {
 public:
  bool enableModule(std::string_view moduleName) override {
    const vantamo::ModuleInstance instance = vantamo::moduleClass(moduleName);
    return instance != nullptr && instance().enable();
  }
  bool disableModule(std::string_view moduleName) override {
    const vantamo::ModuleInstance instance = vantamo::moduleClass(moduleName);
    return instance != nullptr && instance().disable();
  }
  std::optional<vantamo::Value> getConfigItem(std::string_view key, std::string_view) override {
    if (key == "PostMessageUrl") return vantamo::Value("https://tags.example/collect");
    return std::nullopt;
  }
  void postMessage(std::unique_ptr<NQMessage> message, std::string_view) override {
    const std::string text(message->jsonText().view());
    std::puts(text.c_str());
  }
  void flushQueues() override {}
  void setUserAgentFromBrowser() override {}
  bool setNQAdvertisingId(vantamo::Text advertisingId) override {
    const std::scoped_lock lock(mutex_);
    advertisingId_ = advertisingId.absentOrEmpty() ? std::nullopt : advertisingId.copy();
    return true;
  }
  std::optional<std::string> getNQAdvertisingId() override {
    const std::scoped_lock lock(mutex_);
    return advertisingId_;
  }

 private:
  std::mutex mutex_;
  std::optional<std::string> advertisingId_;
};

}  // namespace

// The three functions that a core defines.

NQCore& NQCore::sharedInstance() {
  static auto* const core = new PrintingCore();
  return *core;
}

vantamo::Value::Map NQMessage::jsonDictionary() { return {}; }

std::shared_ptr<NQReachability> NQReachability::reachabilityWithHostName(std::string_view) {
  return std::make_shared<AlwaysReachable>();
}

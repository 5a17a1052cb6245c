#include "vantamo/default_core.h"

#include <cstdlib>
#include <mutex>

#include "cores/default/advertising_id.h"
#include "cores/default/core_settings.h"
#include "cores/default/curl_transport.h"
#include "cores/default/host_reachability.h"
#include "cores/default/message_queue.h"
#include "cores/default/module_registry.h"
#include "cores/default/request_builder.h"
#include "cores/default/sender.h"
#include "cores/default/sender_worker.h"
#include "cores/default/settings_store.h"
#include "cores/default/user_agent.h"
#include "platform/bundle.h"
#include "platform/directories.h"
#include "platform/random.h"
#include "support/guarded.h"
#include "support/json.h"
#include "vantamo/module_directory.h"
#include "vantamo/nq_core.h"

namespace vantamo::core {
namespace {

constexpr std::string_view ownName = "NQCore";
constexpr std::chrono::milliseconds exitLimit{250};

std::string queueFolder(const CoreSettings& settings) {
  const std::string name =
      settings.applicationId ? *settings.applicationId : platform::executableName();
  return platform::cachesDirectory() + "/NQCore/" + name;
}

std::unique_ptr<MessageQueue> openQueue(const CoreSettings& settings) {
  try {
    return openSqliteQueue(queueFolder(settings));
  } catch (const std::exception& exception) {
    support::debugLog("-[NQCore enableModule:]", [&] {
      return support::withValue(
          "The queue file cannot be used, messages are kept in memory only: %@", exception.what());
    });
    return makeMemoryQueue();
  }
}

// What exists from the first module's start until the process ends.
struct Delivery {
  explicit Delivery(const CoreSettings& settings, const RequestBuilder& requests)
      : queue(openQueue(settings)),
        sender({.queue = *queue,
                .transport = transport,
                .requestFor = [&requests](const auto& m) { return requests.requestFor(m); },
                .now = &Sender::Clock::now,
                .random = [] { return platform::random32() / 4294967296.0; }}),
        worker(sender) {}

  const std::unique_ptr<MessageQueue> queue;
  CurlTransport transport;
  Sender sender;
  SenderWorker worker;
};

// Keeps sending on for its scope.
class DrainScope {
 public:
  explicit DrainScope(Sender& sender) : sender_(sender) { sender_.beginDrain(); }
  DrainScope(const DrainScope&) = delete;
  DrainScope& operator=(const DrainScope&) = delete;
  ~DrainScope() { sender_.endDrain(); }

 private:
  Sender& sender_;
};

class DefaultCore final : public NQCore {
 public:
  static DefaultCore& instance() {
    static auto& core = *new DefaultCore();
    return core;
  }

  bool enableModule(std::string_view moduleName) override;
  bool disableModule(std::string_view moduleName) override;
  std::optional<Value> getConfigItem(std::string_view key, std::string_view module) override {
    return settings_.item(key, module);
  }
  void postMessage(std::unique_ptr<NQMessage> message, std::string_view moduleName) override;
  void flushQueues() override;
  void setUserAgentFromBrowser() override;
  bool setNQAdvertisingId(Text advertisingId) override;
  std::optional<std::string> getNQAdvertisingId() override { return advertisingId_.get(); }

  std::size_t undeliveredMessageCount();
  bool drain(std::chrono::milliseconds timeout);
  void reachabilityChanged(long long status);

 private:
  DefaultCore() = default;

  CoreSettings loadOwnSettings();
  Delivery& startDelivery(const CoreSettings& settings);

  SettingsStore settings_;
  ModuleRegistry modules_;
  RequestBuilder requests_{settings_};
  AdvertisingId advertisingId_;
  std::once_flag deliveryOnce_;
  std::atomic<Delivery*> delivery_{nullptr};
};

CoreSettings DefaultCore::loadOwnSettings() {
  settings_.load(ownName,
                 platform::pathForResource(platform::mainBundleFolder(), ownName, "bundle"));
  const ParsedCoreSettings parsed = parseCoreSettings(settings_.items(ownName));
  for (const std::string& complaint : parsed.complaints) {
    support::debugLog("-[NQCore enableModule:]", [&] { return complaint; });
  }
  return parsed.settings;
}

Delivery& DefaultCore::startDelivery(const CoreSettings& settings) {
  std::call_once(deliveryOnce_, [&] {
    delivery_ = new Delivery(settings, requests_);
    // What an earlier run has left was flushed then.
    delivery_.load()->sender.flush();
    // Registered after the libraries below were initialised, and so run before they are undone.
    std::atexit([] {
      HostReachability::endNotifications();
      Delivery& delivery = *instance().delivery_;
      delivery.transport.interrupt();
      delivery.worker.stop(exitLimit);
    });
  });
  Delivery& delivery = *delivery_;
  delivery.transport.setTimeouts(settings.connectTimeout, settings.requestTimeout);
  delivery.sender.setRetryPolicy(settings.retry);
  delivery.sender.setManual(settings.manualPost);
  setUserAgentFromBrowser();  // before anything is sent, what earlier runs have left included
  return delivery;
}

bool DefaultCore::enableModule(std::string_view moduleName) {
  const ModuleInstance moduleInstance = moduleClass(moduleName);
  if (moduleInstance == nullptr) {
    support::debugLog("-[NQCore enableModule:]",
                      [&] { return support::withValue("No module class named %@", moduleName); });
    return false;
  }
  NQLifecycleObject& module = moduleInstance();
  // A module that is registered but did not get through its own start may try again.
  if (!modules_.add(moduleName, module) && module.isEnabled()) return false;
  try {
    const CoreSettings settings = loadOwnSettings();
    settings_.load(moduleName, module.settingsBundlePath());
    Delivery& delivery = startDelivery(settings);
    if (module.enable()) {
      delivery.sender.setSending(true);
      delivery.sender.retryNow();
      delivery.worker.start();
      delivery.worker.wake();
      return true;
    }
  } catch (...) {
    modules_.remove(moduleName);
    throw;
  }
  modules_.remove(moduleName);
  return false;
}

bool DefaultCore::disableModule(std::string_view moduleName) {
  NQLifecycleObject* module = modules_.find(moduleName);
  if (module == nullptr || !module->disable()) return false;
  modules_.remove(moduleName);
  Delivery* delivery = delivery_;
  if (modules_.empty() && delivery != nullptr) delivery->sender.setSending(false);
  return true;
}

void DefaultCore::postMessage(std::unique_ptr<NQMessage> message, std::string_view moduleName) {
  Delivery* delivery = delivery_;
  if (message == nullptr || delivery == nullptr) {
    throw std::logic_error("a message can be posted only after a module was enabled");
  }
  const std::string body = support::writeJson(message->jsonDictionary());
  delivery->queue->append(platform::randomUuid(), moduleName, body);
  delivery->worker.wake();
}

void DefaultCore::flushQueues() {
  Delivery* delivery = delivery_;
  if (delivery == nullptr) return;
  delivery->sender.flush();
  delivery->worker.wake();
}

void DefaultCore::setUserAgentFromBrowser() {
  const auto configured = parseCoreSettings(settings_.items(ownName)).settings.userAgent;
  requests_.setUserAgent(configured ? *configured : defaultUserAgent());
}

bool DefaultCore::setNQAdvertisingId(Text advertisingId) {
  advertisingId_.set(advertisingId);
  return true;
}

void DefaultCore::reachabilityChanged(long long status) {
  Delivery* delivery = delivery_;
  if (status == NQReachability::notReachable || delivery == nullptr) return;
  delivery->sender.retryNow();
  delivery->worker.wake();
}

std::size_t DefaultCore::undeliveredMessageCount() {
  if (const Delivery* delivery = delivery_) return delivery->queue->size();
  // Never started: what earlier runs have left is looked at, and nothing made.
  const std::string folder = queueFolder(loadOwnSettings());
  return queueExists(folder) ? openSqliteQueue(folder)->size() : 0;
}

bool DefaultCore::drain(std::chrono::milliseconds timeout) {
  const auto deadline = Sender::Clock::now() + timeout;
  Delivery* delivery = delivery_;
  if (delivery == nullptr) return undeliveredMessageCount() == 0;
  const DrainScope draining(delivery->sender);
  delivery->sender.retryNow();
  delivery->worker.start();
  std::uint64_t seen = delivery->worker.progress();
  delivery->worker.wake();
  bool empty = delivery->queue->size() == 0;
  while (!empty && delivery->worker.waitForProgress(seen, deadline)) {
    seen = delivery->worker.progress();
    empty = delivery->queue->size() == 0;
  }
  return empty;
}

}  // namespace
}  // namespace vantamo::core

namespace vantamo::default_core {

std::size_t undeliveredMessageCount() {
  constexpr const char* operation = "undeliveredMessageCount";
  return support::guarded(operation, std::size_t{0}, [](std::size_t& result) {
    result = core::DefaultCore::instance().undeliveredMessageCount();
  });
}

bool drain(std::chrono::milliseconds timeout) {
  return support::guarded("drain", false, [timeout](bool& result) {
    result = core::DefaultCore::instance().drain(timeout);
  });
}

}  // namespace vantamo::default_core

// What the contract leaves to the core, in one object file: linking any of it links all.

NQCore& NQCore::sharedInstance() { return vantamo::core::DefaultCore::instance(); }

// The posted body is the tag: nothing is added.
vantamo::Value::Map NQMessage::jsonDictionary() { return {}; }

std::shared_ptr<NQReachability> NQReachability::reachabilityWithHostName(
    std::string_view hostName) {
  try {
    return std::make_shared<vantamo::core::HostReachability>(hostName, [](long long status) {
      vantamo::core::DefaultCore::instance().reachabilityChanged(status);
    });
  } catch (const std::exception& exception) {
    vantamo::support::debugLog("+[NQReachability reachabilityWithHostName:]", [&] {
      return vantamo::support::withValue("The host cannot be watched: %@", exception.what());
    });
    return nullptr;
  }
}

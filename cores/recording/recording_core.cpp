#include "vantamo/recording_core.h"

#include <utility>

#include "platform/process_singleton.h"
#include "vantamo/module_directory.h"
#include "vantamo/notification_center.h"

namespace vantamo {

/// A watcher that answers what the core's members say.
class RecordingReachability final : public NQReachability {
 public:
  bool startNotifier() override {
    RecordingCore& core = RecordingCore::sharedInstance();
    const std::scoped_lock lock(core.mutex_);
    ++core.calls.startNotifier;
    ++core.runningNotifiers_;
    return true;
  }

  bool stopNotifier() override {
    RecordingCore& core = RecordingCore::sharedInstance();
    const std::scoped_lock lock(core.mutex_);
    ++core.calls.stopNotifier;
    if (core.runningNotifiers_ > 0) --core.runningNotifiers_;
    return core.stopNotifierAnswer;
  }

  long long currentReachabilityStatus() override {
    RecordingCore& core = RecordingCore::sharedInstance();
    const std::scoped_lock lock(core.mutex_);
    ++core.calls.currentReachabilityStatus;
    return core.reachabilityStatus;
  }
};

RecordingCore& RecordingCore::sharedInstance() {
  static constinit platform::ProcessSingleton<RecordingCore> instance;
  return instance.get([] { return new RecordingCore(); });
}

bool RecordingCore::enableModule(std::string_view moduleName) {
  std::unique_lock lock(mutex_);
  ++calls.enableModule;
  const auto hook = onEnableModule;
  lock.unlock();
  if (hook) hook();
  const ModuleInstance instance = moduleClass(moduleName);
  if (instance == nullptr) return false;
  NQLifecycleObject& module = instance();
  lock.lock();
  // A module that is registered but did not get through its own start may try again.
  if (refuseEnable || (modules_.contains(moduleName) && module.isEnabled())) return false;
  lock.unlock();
  if (!module.enable()) return false;
  lock.lock();
  modules_.insert_or_assign(std::string(moduleName), &module);
  return true;
}

bool RecordingCore::disableModule(std::string_view moduleName) {
  std::unique_lock lock(mutex_);
  ++calls.disableModule;
  const auto entry = modules_.find(moduleName);
  if (refuseDisable || entry == modules_.end()) return false;
  NQLifecycleObject& module = *entry->second;
  lock.unlock();
  if (!module.disable()) return false;
  lock.lock();
  modules_.erase(std::string(moduleName));
  return true;
}

std::optional<Value> RecordingCore::getConfigItem(std::string_view key,
                                                  std::string_view moduleName) {
  {
    std::unique_lock lock(mutex_);
    ++calls.getConfigItem;
    const auto hook = onGetConfigItem;
    lock.unlock();
    if (hook) hook(key, moduleName);
  }
  const std::scoped_lock lock(mutex_);
  const auto items = settings.find(moduleName);
  const Value* item = items == settings.end() ? nullptr : items->second.find(key);
  return item == nullptr ? std::nullopt : std::optional(*item);
}

void RecordingCore::postMessage(std::unique_ptr<NQMessage> message, std::string_view moduleName) {
  Message recorded{std::string(moduleName), message->jsonDictionary()};
  std::unique_lock lock(mutex_);
  ++calls.postMessage;
  const auto hook = onPostMessage;
  lock.unlock();
  if (hook) hook(recorded.body);
  lock.lock();
  messages.push_back(std::move(recorded));
}

void RecordingCore::flushQueues() {
  const std::scoped_lock lock(mutex_);
  ++calls.flushQueues;
}

void RecordingCore::setUserAgentFromBrowser() {
  const std::scoped_lock lock(mutex_);
  ++calls.setUserAgentFromBrowser;
}

bool RecordingCore::setNQAdvertisingId(Text id) {
  if (const auto hook = onAdvertisingId) hook();
  const std::scoped_lock lock(mutex_);
  ++calls.setNQAdvertisingId;
  advertisingId = id.absentOrEmpty() ? std::nullopt : id.copy();
  return true;
}

std::optional<std::string> RecordingCore::getNQAdvertisingId() {
  if (const auto hook = onAdvertisingId) hook();
  const std::scoped_lock lock(mutex_);
  ++calls.getNQAdvertisingId;
  return advertisingId;
}

void RecordingCore::changeReachability(long long status) {
  bool notifies = false;
  {
    const std::scoped_lock lock(mutex_);
    notifies = std::exchange(reachabilityStatus, status) != status && runningNotifiers_ > 0;
  }
  if (notifies) {
    NotificationCenter::defaultCenter().post(kNQReachabilityChangedNotification);
  }
}

void RecordingCore::reset() {
  const std::scoped_lock lock(mutex_);
  messages.clear();
  settings.clear();
  baseMessage = {};
  advertisingId.reset();
  reachabilityStatus = NQReachability::reachableViaWiFi;
  stopNotifierAnswer = makesReachability = true;
  refuseEnable = refuseDisable = false;
  calls = {};
  hostNames.clear();
  onPostMessage = nullptr;
  onGetConfigItem = nullptr;
  onAdvertisingId = nullptr;
  onEnableModule = nullptr;
}

std::shared_ptr<NQReachability> RecordingCore::makeReachability(std::string_view hostName) {
  const std::scoped_lock lock(mutex_);
  ++calls.reachabilityWithHostName;
  hostNames.emplace_back(hostName);
  return makesReachability ? std::make_shared<RecordingReachability>() : nullptr;
}

NQLifecycleObject* RecordingCore::module(std::string_view moduleName) {
  const std::scoped_lock lock(mutex_);
  const auto entry = modules_.find(moduleName);
  return entry == modules_.end() ? nullptr : entry->second;
}

}  // namespace vantamo

// What the contract leaves to the core, in one object file: linking any of it links all.

NQCore& NQCore::sharedInstance() { return vantamo::RecordingCore::sharedInstance(); }

vantamo::Value::Map NQMessage::jsonDictionary() {
  return vantamo::RecordingCore::sharedInstance().baseMessage;
}

std::shared_ptr<NQReachability> NQReachability::reachabilityWithHostName(
    std::string_view hostName) {
  return vantamo::RecordingCore::sharedInstance().makeReachability(hostName);
}

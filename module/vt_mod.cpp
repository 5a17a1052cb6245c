#include "module/vt_mod.h"

#include "module/settings_reader.h"
#include "platform/bundle.h"
#include "platform/process_singleton.h"
#include "platform/url_host.h"
#include "state/vt_mod_session.h"
#include "support/guarded.h"
#include "vantamo/module_directory.h"
#include "vantamo/notification_center.h"

using vantamo::NotificationCenter;
using vantamo::support::debugLog;
using vantamo::support::guarded;
using vantamo::support::withValue;
namespace platform = vantamo::platform;

namespace {

// Before main, so that the data of an earlier run can be erased before the first start, too.
[[maybe_unused]] const bool erasureIsKnown = [] {
  vantamo::registerModuleErasure(VTMod::moduleName,
                                 [] { return VTMod::sharedInstance().eraseVisitor(); });
  return true;
}();

}  // namespace

VTMod& VTMod::sharedInstance() {
  static constinit platform::ProcessSingleton<VTMod> instance;
  return instance.get([] { return new VTMod(); });
}

VTMod::VTMod() {
  vantamo::registerModuleClass(moduleName,
                               []() -> NQLifecycleObject& { return VTMod::sharedInstance(); });
  VTModSession::reportAnonymousWhen([] { return VTMod::sharedInstance().isOptOutAnonymous(); });
}

bool VTMod::start() {
  constexpr const char* operation = "-[VTMod start]";
  return guarded(operation, false, [&](bool& result) {
    const std::scoped_lock lock(lifecycleMutex_);
    if (bModuleEnabled_) {
      debugLog(operation, [] { return "Module already enabled"; });
      return;
    }
    NQCore& core = NQCore::sharedInstance();
    if (!core.enableModule(moduleName)) {
      debugLog(operation, [] { return "NQCore enableModule returned false"; });
      return;
    }
    result = true;
    if (reachability_.get() == nullptr) createReachability();
    if (const auto watcher = reachability_.get()) {
      watchReachability(watcher);
      debugLog(operation, [] { return "enabling reachability notifications"; });
    }
    applicationName_.set(vantamo::module::stringItem(operation, "AppName"));
    setActiveClientId(nullptr);
    core.setUserAgentFromBrowser();
    bModuleEnabled_ = true;
  });
}

void VTMod::createReachability() {
  constexpr const char* operation = "-[VTMod start]";
  debugLog(operation, [] { return "reachability is nil, creating.."; });
  const std::string url = vantamo::module::stringItem(operation, "PostMessageUrl").value_or("");
  if (url.empty()) {
    debugLog(operation, [] { return "postMessageURLString is nil or empty"; });
    return;
  }
  const std::string host = platform::urlHost(url).value_or("");
  if (!host.empty()) reachability_.set(NQReachability::reachabilityWithHostName(host));
}

void VTMod::watchReachability(const std::shared_ptr<NQReachability>& watcher) {
  NotificationCenter::defaultCenter().addObserver(
      this, kNQReachabilityChangedNotification,
      [this](const void* /*sender*/) { networkReachabilityChanged(); });
  watcher->startNotifier();
  storeReachabilityStatus(watcher.get());
}

// Under one mutex, so that of two threads the later reading is also the one that stays.
void VTMod::storeReachabilityStatus(NQReachability* watcher) {
  const vantamo::platform::MutexLock lock(statusMutex_);
  hostNetworkStatus_ =
      watcher == nullptr ? NQReachability::notReachable : watcher->currentReachabilityStatus();
}

bool VTMod::stop() {
  constexpr const char* operation = "-[VTMod stop]";
  return guarded(operation, false, [&](bool& result) {
    const std::scoped_lock lock(lifecycleMutex_);
    if (!bModuleEnabled_) {
      debugLog(operation, [] { return "module already disabled"; });
      return;
    }
    if (!NQCore::sharedInstance().disableModule(moduleName)) {
      debugLog(operation, [] { return "NQCore disableModule returned false"; });
      return;
    }
    bModuleEnabled_ = false;
    result = true;
  });
}

bool VTMod::newSession() {
  constexpr const char* operation = "-[VTMod newSession]";
  return guarded(operation, false, [&](bool& result) {
    if (!isEnabled()) {
      debugLog(operation, [] { return "module is not enabled, cannot start new session"; });
      return;
    }
    result = resetSession();
  });
}

bool VTMod::resetSession() {
  return guarded("-[VTMod resetSession]", false, [this](bool& result) {
    if (!VTModSession::sharedInstance().newSession()) return;
    VTTagsRingBuffer& buffer = VTTagsRingBuffer::sharedInstance();
    vtTagsRingBuffer_ = &buffer;
    buffer.setFirstPageView(true);
    result = true;
  });
}

bool VTMod::eraseVisitor() {
  constexpr const char* operation = "-[VTMod eraseVisitor]";
  return guarded(operation, false, [&](bool& result) {
    result = VTModSession::sharedInstance().eraseVisitor(bModuleEnabled_);
    VTTagsRingBuffer& buffer = VTTagsRingBuffer::sharedInstance();
    buffer.setRingBuffer({});
    buffer.setFirstPageView(true);
    if (!result) debugLog(operation, [] { return "session file could not be erased"; });
  });
}

bool VTMod::enable() {
  constexpr const char* operation = "-[VTMod enable]";
  return guarded(operation, false, [&](bool& result) {
    result = resetSession() && vtTagsRingBuffer_ != nullptr;
    if (!result) {
      debugLog(operation, [] {
        return "session or ring buffer objects could not be created, cannot enable module";
      });
    }
  });
}

bool VTMod::disable() {
  constexpr const char* operation = "-[VTMod disable]";
  return guarded(operation, true, [&](bool& /*result*/) {
    NotificationCenter::defaultCenter().removeObserver(this);
    const auto watcher = reachability_.get();
    if (watcher != nullptr && !watcher->stopNotifier()) {
      debugLog(operation, [] { return "reachability notifications failed to stop"; });
    }
  });
}

std::string VTMod::sessionId() {
  return guarded("-[VTMod sessionId]", std::string(), [this](std::string& result) {
    if (bModuleEnabled_) result = VTModSession::sharedInstance().cjsid().value_or("");
  });
}

std::string VTMod::visitorId() {
  return guarded("-[VTMod visitorId]", std::string(), [this](std::string& result) {
    if (bModuleEnabled_) result = VTModSession::sharedInstance().visitorId();
  });
}

bool VTMod::setPRWAdvertisingId(vantamo::Text advertisingId) {
  return NQCore::sharedInstance().setNQAdvertisingId(advertisingId);
}

std::optional<std::string> VTMod::getPRWAdvertisingId() {
  return NQCore::sharedInstance().getNQAdvertisingId();
}

void VTMod::networkReachabilityChanged() {
  constexpr const char* operation = "-[VTMod networkReachabilityChanged:]";
  guarded(operation, [&] {
    storeReachabilityStatus(reachability_.get().get());
    debugLog(operation, [this] {
      switch (hostNetworkStatus_) {
        case NQReachability::notReachable: return "Reachability: NotReachable";
        case NQReachability::reachableViaWiFi: return "Reachability: ReachableViaWiFi";
        case NQReachability::reachableViaWWAN: return "Reachability: ReachableViaWWAN";
        default: return "Reachability: Unknown";
      }
    });
  });
}

bool VTMod::canFire() {
  constexpr const char* operation = "-[VTMod canFire]";
  return guarded(operation, false, [&](bool& result) {
    result = isEnabled();
    if (!result) {
      debugLog(operation, [] { return "Cannot fire as module not enabled"; });
      return;
    }
    // Assigned only now: should the test itself fail, an enabled module goes on firing.
    if (optOutModeStr_.get() == "opt_out") {
      result = false;
      debugLog(operation, [] { return "Cannot fire as opted out"; });
    }
  });
}

std::optional<std::string> VTMod::settingsBundlePath() {
  constexpr const char* operation = "-[VTMod settingsBundlePath]";
  using Path = std::optional<std::string>;
  return guarded(operation, Path(std::in_place), [&](Path& result) {
    Path path = platform::pathForResource(platform::mainBundleFolder(), moduleName, "bundle");
    if (!path) {
      debugLog(operation,
               [] { return "VTMod bundle not found in main bundle. Looking in frameworks .."; });
      static const char ownSymbol = 0;
      if (const Path own = platform::bundleFolderOfSymbol(&ownSymbol)) {
        path = platform::pathForResource(*own, moduleName, "bundle");
      } else {
        debugLog(operation, [] { return "Bundle for VT Module not found"; });
      }
    }
    debugLog(operation,
             [&] { return withValue("Using settings at: %@", path ? *path : "(null)"); });
    result = path;
  });
}

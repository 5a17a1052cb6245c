#include "cores/default/core_object.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "cores/default/fork_guard.h"
#include "cores/default/host_reachability.h"
#include "cores/default/queue_slot.h"
#include "cores/default/user_agent.h"
#include "platform/bundle.h"
#include "platform/directories.h"
#include "platform/file.h"
#include "platform/process_singleton.h"
#include "platform/random.h"
#include "support/debug_log.h"
#include "support/json.h"
#include "vantamo/module_directory.h"

namespace vantamo::core {
namespace {

using Clock = Delivery::Clock;
using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr std::string_view ownName = "NQCore";
constexpr milliseconds exitLimit{250};

// The delivery of this process, for its end. A forked child has none until it makes one.
constinit std::atomic<Delivery*> deliveryOfProcess{nullptr};

std::string queueFolder(const CoreSettings& settings, const default_core::Options& options) {
  if (options.queueFolder) return *options.queueFolder;
  return platform::cachesDirectory() + "/NQCore/" +
         (settings.applicationId ? *settings.applicationId : platform::executableName());
}

void endWithProcess() {
  HostReachability::endNotifications();
  if (Delivery* delivery = deliveryOfProcess) delivery->stopForExit(exitLimit);
}

std::function<system_clock::time_point()> wallClockOf(const default_core::Options& options) {
  if (!options.wallClock) return &system_clock::now;
  // A host's clock that throws is no clock.
  return [clock = options.wallClock] {
    try {
      return clock();
    } catch (...) {
      return system_clock::now();
    }
  };
}

}  // namespace

DefaultCore& DefaultCore::instance() {
  static constinit platform::ProcessSingleton<DefaultCore> core;
  return core.get();
}

void DefaultCore::abandonInChild(DefaultCore& /*core*/) noexcept {
  deliveryOfProcess = nullptr;
  QueueSlot::abandonAll();
}

// --- Making the parts

CoreSettings DefaultCore::loadOwnSettings() {
  settings_.load(ownName,
                 platform::pathForResource(platform::mainBundleFolder(), ownName, "bundle"));
  ParsedCoreSettings parsed = parseCoreSettings(settings_.items(ownName));
  for (const std::string& complaint : parsed.complaints) {
    support::debugLog("-[NQCore enableModule:]", [&] { return complaint; });
  }
  return parsed.settings;
}

Delivery& DefaultCore::delivery(const CoreSettings& settings) {
  const platform::MutexLock lock(mutex_);
  used_ = true;
  if (Delivery* made = delivery_) return *made;
  guardForks();
  curlOptions_->proxies = Proxies::fromEnvironment();
  curlOptions_->certificateFile = options_.certificateFile.value_or("");
  auto made = std::make_unique<Delivery>(Delivery::Parts{
      .queueFolder = queueFolder(settings, options_),
      .sender = {
          .requestFor = [this](const auto& message) { return requests_.requestFor(message); },
          .hasModule = [](const std::string& name) { return moduleClass(name) != nullptr; },
          .now = &Clock::now,
          .wallClock = wallClockOf(options_),
          .random = [] { return platform::random32() / 4294967296.0; }},
      .makeTransport = [host = options_.transport,
                        options = curlOptions_]() -> std::shared_ptr<default_core::Transport> {
        return host ? host : std::make_shared<CurlTransport>(options);
      }});
  made->setCallback(callback_);
  delivery_ = made.release();
  curlOptions_->meanwhile = [delivery = delivery_.load()] { delivery->secure(); };
  deliveryOfProcess = delivery_.load();
  // Here and not on the sending thread: what the library below registers for the end of the process
  // must stand before ours, which then runs first and ends the thread.
  if (!options_.transport) static_cast<void>(startHttpLibrary());
  std::atexit(&endWithProcess);
  return *delivery_;
}

// For what earlier runs have left: nothing is made where there is nothing.
Delivery* DefaultCore::deliveryOfLeftovers() {
  if (Delivery* made = delivery_) return made;
  const CoreSettings settings = loadOwnSettings();
  {
    const platform::MutexLock lock(mutex_);
    used_ = true;
    if (!platform::exists(queueFolder(settings, options_))) return nullptr;
  }
  Delivery& made = delivery(settings);
  configure(made, settings);
  return &made;
}

void DefaultCore::configure(Delivery& delivery, const CoreSettings& settings) {
  CoreSettings chosen = settings;
  {
    const platform::MutexLock lock(mutex_);
    chosen.maxQueuedMessages = options_.maxQueuedMessages.value_or(settings.maxQueuedMessages);
    chosen.maxQueueBytes = options_.maxQueueBytes.value_or(settings.maxQueueBytes);
    chosen.maxDeadLetters = options_.maxDeadLetters.value_or(settings.maxDeadLetters);
    chosen.maxConcurrentPosts = options_.maxConcurrentPosts.value_or(settings.maxConcurrentPosts);
  }
  curlOptions_->connectTimeout = settings.connectTimeout;
  curlOptions_->requestTimeout = settings.requestTimeout;
  delivery.configure(chosen);
  setUserAgentFromBrowser();  // before anything is sent, what earlier runs have left included
}

// --- The contract

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
    Delivery& delivery = this->delivery(settings);
    configure(delivery, settings);
    {
      const platform::MutexLock lock(mutex_);
      auto& use = uses_[std::string(moduleName)];
      if (use == nullptr) use = std::make_unique<Delivery::Use>(delivery);
    }
    if (module.enable()) {
      everStarted_ = true;
      delivery.setSending(true);
      delivery.retryNow();
      return true;
    }
  } catch (...) {
    abandon(moduleName);
    throw;
  }
  abandon(moduleName);
  return false;
}

bool DefaultCore::disableModule(std::string_view moduleName) {
  NQLifecycleObject* module = modules_.find(moduleName);
  if (module == nullptr || !module->disable()) return false;
  abandon(moduleName);
  return true;
}

void DefaultCore::abandon(std::string_view moduleName) {
  modules_.remove(moduleName);
  Delivery* delivery = delivery_;
  if (modules_.empty() && delivery != nullptr) delivery->setSending(false);
  const platform::MutexLock lock(mutex_);
  if (const auto use = uses_.find(moduleName); use != uses_.end()) uses_.erase(use);
}

void DefaultCore::postMessage(std::unique_ptr<NQMessage> message, std::string_view moduleName) {
  Delivery* delivery = delivery_;
  if (message == nullptr || delivery == nullptr) {
    throw std::logic_error("a message can be posted only after a module was enabled");
  }
  const Text ready = message->jsonText();
  if (ready.present()) return delivery->post(moduleName, ready.view());
  delivery->post(moduleName, support::writeJson(message->jsonDictionary()));
}

void DefaultCore::flushQueues() {
  if (Delivery* delivery = delivery_) delivery->flushQueue();
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
  if (status != NQReachability::notReachable && delivery != nullptr) delivery->networkRecovered();
}

}  // namespace vantamo::core

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vantamo/export.h"
#include "vantamo/nq_core.h"

namespace vantamo {

class RecordingReachability;

/// A core for a host's own tests: link Vantamo::recording_core in place of the default core, and
/// NQCore::sharedInstance() is this one. It sends nothing, keeps everything, and plays the answers
/// that the test has set.
///
///     auto& core = vantamo::RecordingCore::sharedInstance();
///     core.settings["VTMod"].set("PostMessageUrl", "https://tags.example/collect");
///     core.reachabilityStatus = NQReachability::reachableViaWiFi;
///     Vantamo::startup();
///     Vantamo::firePageView({.pageId = "home"});
///     EXPECT_EQ(core.messages.at(0).body.stringAt("pi"), "home");
///
/// The plain members are for the test's own thread: set and read them while no call into the
/// library runs on another. Contract calls themselves are safe from any thread.
class VANTAMO_EXPORT RecordingCore final : public NQCore {
 public:
  /// A message that was posted.
  struct Message {
    std::string moduleName;  ///< The module that has posted it.
    /// What the message's jsonDictionary answered when it was posted.
    Value::Map body;
  };

  /// How often each operation of the contract was called.
  struct Calls {
    int enableModule = 0;               ///< Calls of NQCore::enableModule.
    int disableModule = 0;              ///< Calls of NQCore::disableModule.
    int getConfigItem = 0;              ///< Calls of NQCore::getConfigItem.
    int postMessage = 0;                ///< Calls of NQCore::postMessage.
    int flushQueues = 0;                ///< Calls of NQCore::flushQueues.
    int setUserAgentFromBrowser = 0;    ///< Calls of NQCore::setUserAgentFromBrowser.
    int setNQAdvertisingId = 0;         ///< Calls of NQCore::setNQAdvertisingId.
    int getNQAdvertisingId = 0;         ///< Calls of NQCore::getNQAdvertisingId.
    int reachabilityWithHostName = 0;   ///< Calls of NQReachability::reachabilityWithHostName.
    int startNotifier = 0;              ///< Calls of NQReachability::startNotifier.
    int stopNotifier = 0;               ///< Calls of NQReachability::stopNotifier.
    int currentReachabilityStatus = 0;  ///< Calls of NQReachability::currentReachabilityStatus.
  };

  /// The one core of the process; a forked child has another.
  static RecordingCore& sharedInstance();

  /// Posted messages in order of arrival.
  std::vector<Message> messages;
  /// Module name to configuration items.
  std::map<std::string, Value::Map, std::less<>> settings;
  /// What the base message adds to every message.
  Value::Map baseMessage;
  std::optional<std::string> advertisingId;  ///< Absent when none is set.

  /// What reachability watchers answer; see also changeReachability.
  long long reachabilityStatus = NQReachability::reachableViaWiFi;
  /// What stopNotifier answers.
  bool stopNotifierAnswer = true;
  /// When false, no watcher is made.
  bool makesReachability = true;
  bool refuseEnable = false;   ///< When true, enableModule answers false and calls no module.
  bool refuseDisable = false;  ///< When true, disableModule answers false and calls no module.

  Calls calls;  ///< How often the library has called.
  /// Host names that watchers were asked for, oldest first.
  std::vector<std::string> hostNames;

  // Called at the start of the operation, before anything is recorded; may throw or call the
  // library.

  /// Called with the message's map.
  std::function<void(const Value::Map& body)> onPostMessage;
  /// Called with what is asked for.
  std::function<void(std::string_view key, std::string_view moduleName)> onGetConfigItem;
  /// Called before the module is looked for.
  std::function<void()> onEnableModule;
  /// For both operations on the advertising id.
  std::function<void()> onAdvertisingId;

  /// What NQReachability::reachabilityWithHostName answers.
  std::shared_ptr<NQReachability> makeReachability(std::string_view hostName);
  /// Sets the status and posts the change as a watcher with a running notifier would.
  void changeReachability(long long status);
  /// Forgets everything recorded and set; modules stay registered.
  void reset();
  /// The registered module of this name, or null.
  [[nodiscard]] NQLifecycleObject* module(std::string_view moduleName);

  bool enableModule(std::string_view moduleName) override;
  bool disableModule(std::string_view moduleName) override;
  std::optional<Value> getConfigItem(std::string_view key, std::string_view moduleName) override;
  void postMessage(std::unique_ptr<NQMessage> message, std::string_view moduleName) override;
  void flushQueues() override;
  void setUserAgentFromBrowser() override;
  bool setNQAdvertisingId(Text advertisingId) override;
  std::optional<std::string> getNQAdvertisingId() override;

 private:
  friend class RecordingReachability;

  RecordingCore() = default;

  std::mutex mutex_;  // never held while a hook or a module is called
  std::map<std::string, NQLifecycleObject*, std::less<>> modules_;
  int runningNotifiers_ = 0;
};

}  // namespace vantamo

#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vantamo/nq_core.h"

/// A core for a host's own tests: link Vantamo::recording_core in place of the default core, and
/// NQCore::sharedInstance() is this one. It sends nothing, keeps everything, and plays the answers
/// that the test has set.
///
///   auto& core = vantamo::RecordingCore::sharedInstance();
///   core.settings["VTMod"].set("PostMessageUrl", "https://tags.example/collect");
///   core.reachabilityStatus = NQReachability::reachableViaWiFi;
///   Vantamo::startup();
///   Vantamo::firePageView({.pageId = "home"});
///   EXPECT_EQ(core.messages.at(0).body.stringAt("pi"), "home");
///
/// The plain members are for the test's own thread: set and read them while no call into the
/// library runs on another. Contract calls themselves are safe from any thread.
namespace vantamo {

class RecordingReachability;

class RecordingCore final : public NQCore {
 public:
  struct Message {
    std::string moduleName;
    /// What the message's jsonDictionary answered when it was posted.
    Value::Map body;
  };

  /// How often each operation of the contract was called.
  struct Calls {
    int enableModule = 0;
    int disableModule = 0;
    int getConfigItem = 0;
    int postMessage = 0;
    int flushQueues = 0;
    int setUserAgentFromBrowser = 0;
    int setNQAdvertisingId = 0;
    int getNQAdvertisingId = 0;
    int reachabilityWithHostName = 0;
    int startNotifier = 0;
    int stopNotifier = 0;
    int currentReachabilityStatus = 0;
  };

  static RecordingCore& sharedInstance();

  /// Posted messages in order of arrival.
  std::vector<Message> messages;
  /// Module name to configuration items.
  std::map<std::string, Value::Map, std::less<>> settings;
  /// What the base message adds to every message.
  Value::Map baseMessage;
  std::optional<std::string> advertisingId;

  /// What reachability watchers answer; see also changeReachability.
  long long reachabilityStatus = NQReachability::reachableViaWiFi;
  /// What stopNotifier answers.
  bool stopNotifierAnswer = true;
  /// When false, no watcher is made.
  bool makesReachability = true;
  /// When true, enableModule or disableModule answers false without calling the module.
  bool refuseEnable = false;
  bool refuseDisable = false;

  Calls calls;
  /// Host names that watchers were asked for, oldest first.
  std::vector<std::string> hostNames;

  /// Called at the start of the operation, before anything is recorded; may throw or call the
  /// library.
  std::function<void(const Value::Map& body)> onPostMessage;
  std::function<void(std::string_view key, std::string_view moduleName)> onGetConfigItem;
  std::function<void()> onEnableModule;

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

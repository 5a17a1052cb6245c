#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "vantamo/export.h"
#include "vantamo/text.h"
#include "vantamo/value.h"

/// @file
/// The contract between the module and the core that carries its tags.
///
/// Whoever brings a core defines the three functions that are only declared here:
/// NQCore::sharedInstance, NQMessage::jsonDictionary and NQReachability::reachabilityWithHostName.
/// Linking a program without a core is a link error; changing the core needs no rebuild of the
/// module. All operations must be safe to call from any thread.
///
/// A core finds the class of a module through vantamo::moduleClass (module_directory.h). On
/// enableModule it loads the module's settings from `settingsBundlePath`, calls `enable` and
/// refuses the module when that answers false; on disableModule it calls `disable`.

/// Posted on the default notification centre by an NQReachability whose status has changed.
inline constexpr std::string_view kNQReachabilityChangedNotification =
    "kNQReachabilityChangedNotification";

/// Base class of the messages that a core queues and posts.
class VANTAMO_EXPORT NQMessage {
 public:
  NQMessage() = default;
  NQMessage(const NQMessage&) = delete;
  NQMessage& operator=(const NQMessage&) = delete;
  virtual ~NQMessage() = default;

  /// What is serialised as the message's body: a new map at every call. The base class answers the
  /// members that the core adds to every message. Defined by the core.
  virtual vantamo::Value::Map jsonDictionary();

  /// The same as JSON text, from a message that has it ready: a core that has no use for the map
  /// keeps these bytes, and spares the host's thread the writing. Absent: there is only the map.
  /// The view holds as long as the message.
  [[nodiscard]] virtual vantamo::Text jsonText() const { return {}; }
};

/// What a module may do with a request before the core sends it.
struct NQRequest {
  std::string url;  ///< Where it goes.
  /// Header name to string value.
  vantamo::Value::Map headers;
};

/// The operations of a module that a core must ask for before it calls them.
enum class NQOptionalOperation {
  httpHeadersForSessionId,
  addCookiesToRequest,
  handleUncaughtException,
  saveCurrentConfigurableItems,
  zelAppWillTerminate,
};

/// How a core drives a module. The core's threads call it.
class VANTAMO_EXPORT NQLifecycleObject {
 public:
  virtual ~NQLifecycleObject() = default;

  /// Prepares the module for its first event. False makes the core refuse the module.
  virtual bool enable() = 0;
  /// Ends what `enable` and the module's start have begun. False keeps the module registered.
  virtual bool disable() = 0;
  /// Whether the module runs.
  [[nodiscard]] virtual bool isEnabled() const = 0;
  /// The folder that holds the module's settings.json; absent when none was found.
  virtual std::optional<std::string> settingsBundlePath() = 0;

  /// True for each optional operation below that the module implements.
  [[nodiscard]] virtual bool respondsTo(NQOptionalOperation operation) const {
    static_cast<void>(operation);
    return false;
  }

  /// Extra HTTP headers (name to string value) for the message with this JSON body.
  virtual vantamo::Value::Map httpHeadersForSessionId(vantamo::Text sessionId, vantamo::Text json) {
    static_cast<void>(sessionId);
    static_cast<void>(json);
    return {};
  }
  /// Changes a request of the module's before it is sent.
  virtual void addCookiesToRequest(NQRequest& request) { static_cast<void>(request); }
  /// Hears of an exception that nobody caught, where the core can tell.
  virtual void handleUncaughtException(const std::exception& exception) {
    static_cast<void>(exception);
  }
  /// Takes over items that were changed while the host runs.
  virtual bool saveCurrentConfigurableItems(const vantamo::Value& items) {
    static_cast<void>(items);
    return false;
  }
  /// Hears that the host is about to end.
  virtual void zelAppWillTerminate() {}
};

/// Watches whether one host can be reached.
class VANTAMO_EXPORT NQReachability {
 public:
  // What currentReachabilityStatus answers; other values are unknown.
  static constexpr long long notReachable = 0;      ///< Not reachable.
  static constexpr long long reachableViaWiFi = 1;  ///< Reachable.
  static constexpr long long reachableViaWWAN = 2;  ///< Over a wide-area (mobile) network.

  NQReachability() = default;
  NQReachability(const NQReachability&) = delete;
  NQReachability& operator=(const NQReachability&) = delete;
  virtual ~NQReachability() = default;

  /// A new watcher for a host name or literal address (IPv6 without brackets), or null. Defined by
  /// the core.
  static std::shared_ptr<NQReachability> reachabilityWithHostName(std::string_view hostName);

  /// Begins to post kNQReachabilityChangedNotification, with the watcher as sender, at each change.
  virtual bool startNotifier() = 0;
  /// Ends it. False when the watcher could not be stopped.
  virtual bool stopNotifier() = 0;
  /// What is known now; never waits for the network.
  virtual long long currentReachabilityStatus() = 0;
};

/// The core: module registry, configuration items, message queue and posting.
class VANTAMO_EXPORT NQCore {
 public:
  NQCore() = default;
  NQCore(const NQCore&) = delete;
  NQCore& operator=(const NQCore&) = delete;
  virtual ~NQCore() = default;

  /// The one core of the process; lives until the process ends. Defined by the core.
  static NQCore& sharedInstance();

  /// Registers the named module, loads its settings afresh and calls its `enable`. False when the
  /// name is unknown, the module is registered already, or its `enable` answered false.
  virtual bool enableModule(std::string_view moduleName) = 0;
  /// Calls the module's `disable` and unregisters it. False when it is not registered.
  virtual bool disableModule(std::string_view moduleName) = 0;

  /// The configuration item, or nothing when it is not configured.
  virtual std::optional<vantamo::Value> getConfigItem(std::string_view key,
                                                      std::string_view moduleName) = 0;

  /// Takes the message over: from here on the core keeps it safe until it is delivered. Throws
  /// what derives from std::exception when the core could not take it.
  virtual void postMessage(std::unique_ptr<NQMessage> message, std::string_view moduleName) = 0;
  /// Asks the core to send now what it has queued.
  virtual void flushQueues() = 0;

  /// Fixes the user-agent string that the core sends.
  virtual void setUserAgentFromBrowser() = 0;
  /// Keeps the advertising id; absent or empty clears it.
  virtual bool setNQAdvertisingId(vantamo::Text advertisingId) = 0;
  /// Absent when none is set.
  virtual std::optional<std::string> getNQAdvertisingId() = 0;
};

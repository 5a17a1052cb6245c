#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "platform/mutex.h"
#include "state/vt_tags_ring_buffer.h"
#include "tags/event_format.h"
#include "tags/joined_events.h"
#include "tags/vt_tag.h"
#include "tags/vt_tag_dictionary.h"
#include "vantamo/events.h"
#include "vantamo/nq_core.h"

/// The module: what the core manages and what the facade forwards to. One per process.
///
/// Life: created (not registered) -> running, by a successful `start` -> stopped, by a successful
/// `stop` -> running again. While it runs, the core has called `enable` and a session exists.
///
/// Safe from any thread: fields that another thread may touch are atomics or guarded copies, start
/// and stop run one at a time, and the buffer's tags leave in their order. Nothing derived from
/// std::exception leaves an operation, the advertising-id operations and the plain accessors
/// excepted; a failure is logged and answered with the result reached so far.
class VTMod final : public NQLifecycleObject {
 public:
  /// The one instance. Its creation makes the class known to the core.
  static VTMod& sharedInstance();

  VTMod(const VTMod&) = delete;
  VTMod& operator=(const VTMod&) = delete;

  // Lifecycle (vt_mod.cpp).

  /// Registers with the core and starts. False when running already or refused by the core.
  bool start();
  bool stop();
  /// A new session, if the module is enabled.
  bool newSession();
  /// A new session in any case.
  bool resetSession();
  /// Forgets the visitor: the session file and the buffered tags go, and an enabled module goes on
  /// in a new session as a new visitor. An event that another thread fires meanwhile may still
  /// carry the old ids. True when nothing of the old visitor is left.
  bool eraseVisitor();
  bool enable() override;
  bool disable() override;
  [[nodiscard]] bool isEnabled() const override { return bModuleEnabled_; }
  [[nodiscard]] static std::string_view name() { return moduleName; }
  std::optional<std::string> settingsBundlePath() override;
  /// "" while the module is not enabled.
  std::string sessionId();
  std::string visitorId();
  bool setPRWAdvertisingId(vantamo::Text advertisingId);
  std::optional<std::string> getPRWAdvertisingId();
  /// Takes over the watcher's status; sends nothing.
  void networkReachabilityChanged();
  /// The firing gate: enabled and not opted out.
  bool canFire();

  // Events (vt_mod_firing.cpp). True only when the tag was handed on.

  bool firePageView(const vantamo::PageView& event);
  bool firePageView(const vantamo::tags::JoinedPageView& event);
  bool fireTechnicalProperties(const vantamo::tags::JoinedPageView& event);
  bool fireProductView(const vantamo::ProductView& event);
  bool fireShopAction5(const vantamo::ShopAction5& event);
  bool fireShopAction9(const vantamo::ShopAction9& event);
  bool fireOrder(const vantamo::Order& event);
  bool fireRegistration(const vantamo::Registration& event);
  bool fireElement(const vantamo::Element& event);
  bool fireConversionEvent(const vantamo::ConversionEvent& event);
  bool fireLinkClick(const vantamo::LinkClick& event);
  bool fireImpression(const vantamo::Impression& event);
  bool fireImpression(const vantamo::tags::JoinedImpression& event);
  /// Logs "... is required" for an absent or empty value.
  bool isRequiredStringParamPassed(vantamo::Text value, std::string_view paramDescription);
  /// The value, or "" when absent.
  static vantamo::Text emptyStringIfNil(vantamo::Text value);

  // Posting (vt_mod_posting.cpp). True when the tag was handed to the core; false too when it
  // waits in the buffer for the network.

  bool postTagDictionary(VTTagDictionary tag);
  bool postTagString(const VTTag& tag);

  // Headers (vt_mod_headers.cpp): the core asks for them when it sends a message.

  [[nodiscard]] bool respondsTo(NQOptionalOperation operation) const override;
  vantamo::Value::Map httpHeadersForSessionId(vantamo::Text sessionId, vantamo::Text json) override;
  vantamo::Value::Map technicalPropertiesHeaders();
  static std::string deviceModel();
  /// "PHONE" or "TABLET".
  static std::string deviceType();
  static bool isTechnicalPropertiesTagJson(vantamo::Text json);

  // Client id, opt-out, settings (vt_mod_client.cpp).

  /// Switches the client id; absent or empty loads the configured one.
  static bool setActiveClientId(vantamo::Text clientId);
  static bool clearActiveClientId();
  /// "opt_in", "opt_out" or "anonymous"; anything else opts in and answers false.
  bool setOptOut(vantamo::Text mode);
  std::string getOptOut();
  bool isOptOutAnonymous();
  /// The entry for the API in the settings item "constraints"; an accessor, used by no check.
  std::optional<vantamo::Value> constraintsFor(vantamo::Text apiName);

  // Fields.

  [[nodiscard]] VTTagsRingBuffer* vtTagsRingBuffer() const { return vtTagsRingBuffer_; }
  [[nodiscard]] std::shared_ptr<NQReachability> reachability() const { return reachability_.get(); }
  [[nodiscard]] long long hostNetworkStatus() const { return hostNetworkStatus_; }
  [[nodiscard]] std::optional<std::string> applicationName() const {
    return applicationName_.get();
  }
  void setApplicationName(vantamo::Text name) { applicationName_.set(name.copy()); }
  [[nodiscard]] std::optional<std::string> clientId() const { return clientId_.get(); }
  void setClientId(vantamo::Text clientId) { clientId_.set(clientId.copy()); }
  [[nodiscard]] std::string optOutModeStr() const { return optOutModeStr_.get(); }
  void setOptOutModeStr(vantamo::Text mode) { optOutModeStr_.set(std::string(mode.view())); }

  static constexpr std::string_view moduleName = "VTMod";

 private:
  using Tag = VTTagsRingBuffer::Tag;

  VTMod();

  void createReachability();
  void watchReachability(const std::shared_ptr<NQReachability>& watcher);
  void storeReachabilityStatus(NQReachability* watcher);
  [[nodiscard]] bool networkIsReachable() const;

  template <class Event>
  bool requiredPassed(const vantamo::tags::EventFormat<Event>& format, const Event& event);
  template <class Event>
  bool fire(const vantamo::tags::EventFormat<Event>& format, const Event& event,
            std::type_identity_t<bool (VTTagDictionary::*)(const Event&)> makeTag);

  static void postDirectly(Tag tag);
  bool postThroughBuffer(Tag tag);
  bool post(std::string_view operation, vantamo::state::StoredTag tag);
  static void flushIfManual(std::string_view operation);

  std::recursive_mutex lifecycleMutex_;  // one start or stop at a time
  std::recursive_mutex postingMutex_;    // a tag's append and the drain belong together; recursive,
                                         // because a core may fire while it takes a message
  bool draining_ = false;                // under postingMutex_
  vantamo::platform::Mutex statusMutex_;  // reading the watcher and storing belong together

  std::atomic<bool> bModuleEnabled_{false};
  std::atomic<VTTagsRingBuffer*> vtTagsRingBuffer_{nullptr};
  vantamo::platform::Locked<std::shared_ptr<NQReachability>> reachability_;
  std::atomic<long long> hostNetworkStatus_{NQReachability::notReachable};
  vantamo::platform::Locked<std::optional<std::string>> applicationName_;
  vantamo::platform::Locked<std::optional<std::string>> clientId_;
  vantamo::platform::Locked<std::string> optOutModeStr_{"opt_in"};
};

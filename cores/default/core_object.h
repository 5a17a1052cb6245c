#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "cores/default/advertising_id.h"
#include "cores/default/core_settings.h"
#include "cores/default/curl_transport.h"
#include "cores/default/delivery.h"
#include "cores/default/module_registry.h"
#include "cores/default/request_builder.h"
#include "cores/default/settings_store.h"
#include "vantamo/default_core.h"
#include "vantamo/nq_core.h"

namespace vantamo::core {

/// The core we ship: what the contract asks for and what default_core.h offers, put together from
/// the parts in this folder.
class DefaultCore final : public NQCore {
 public:
  static DefaultCore& instance();
  /// In a forked child: the parent's queue stays the parent's.
  static void abandonInChild(DefaultCore& core) noexcept;

  DefaultCore() = default;

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

  bool setOptions(default_core::Options options);
  [[nodiscard]] default_core::Stats stats() const;
  void setCallback(Delivery::Callback callback);
  bool flush(std::chrono::milliseconds deadline);
  [[nodiscard]] std::vector<default_core::DeadLetter> deadLetters();
  using Ids = std::optional<std::vector<std::string>>;
  std::size_t replayDeadLetters(const Ids& ids);
  std::size_t purgeDeadLetters(const Ids& ids);
  bool eraseAll();
  void reachabilityChanged(long long status);

 private:
  [[nodiscard]] CoreSettings loadOwnSettings();
  [[nodiscard]] Delivery& delivery(const CoreSettings& settings);
  [[nodiscard]] Delivery* deliveryOfLeftovers();
  void configure(Delivery& delivery, const CoreSettings& settings);
  void abandon(std::string_view moduleName);
  using DeadLetterChange = QueueChange (MessageQueue::*)(const Ids&);
  std::size_t changeDeadLetters(const Ids& ids, DeadLetterChange change);

  SettingsStore settings_;
  ModuleRegistry modules_;
  RequestBuilder requests_{settings_};
  AdvertisingId advertisingId_;

  mutable platform::Mutex mutex_;
  default_core::Options options_ VANTAMO_GUARDED_BY(mutex_);
  bool used_ VANTAMO_GUARDED_BY(mutex_) = false;
  Delivery::Callback callback_ VANTAMO_GUARDED_BY(mutex_);
  std::map<std::string, std::unique_ptr<Delivery::Use>, std::less<>> uses_
      VANTAMO_GUARDED_BY(mutex_);  // one for each registered module

  const std::shared_ptr<CurlOptions> curlOptions_ = std::make_shared<CurlOptions>();
  std::atomic<Delivery*> delivery_{nullptr};  // set once, under the mutex; never destroyed
  std::atomic<bool> everStarted_{false};
};

}  // namespace vantamo::core

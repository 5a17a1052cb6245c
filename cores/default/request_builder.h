#pragma once

#include <optional>
#include <string>

#include "cores/default/message_queue.h"
#include "cores/default/settings_store.h"
#include "platform/mutex.h"
#include "vantamo/transport.h"

namespace vantamo::core {

/// Turns a queued message into the request that carries it, asking the message's module for what it
/// adds; a module that was stopped meanwhile is asked too. For the sending thread; setUserAgent()
/// is safe from any.
class RequestBuilder {
 public:
  explicit RequestBuilder(const SettingsStore& settings) : settings_(settings) {}

  void setUserAgent(const std::string& userAgent) { userAgent_.set(userAgent); }

  /// The request, to where the settings point now; nothing while they name no endpoint.
  [[nodiscard]] std::optional<default_core::HttpRequest> requestFor(
      const QueuedMessage& message) const;

 private:
  const SettingsStore& settings_;
  platform::Locked<std::string> userAgent_;
};

}  // namespace vantamo::core

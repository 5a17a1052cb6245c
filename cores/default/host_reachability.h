#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/mutex.h"
#include "vantamo/nq_core.h"

namespace vantamo::core {

/// Watches one host by what the system knows of addresses, links and routes; it sends no packet
/// but the look-up of a name. Literal addresses are judged by the route to them, names by the
/// routes at all until they are looked up and then by their addresses; a name that cannot be
/// looked up is not reachable.
///
/// Safe from any thread, its own notification handlers included. Stopping the notifier does not
/// wait for a handler that is being called.
class HostReachability final : public NQReachability {
 public:
  /// `onChange` is called with the new status, before the notification is posted.
  HostReachability(std::string_view hostName, std::function<void(long long)> onChange);
  ~HostReachability() override;

  /// Makes all watchers silent for good: the process ends, and its observers with it.
  static void endNotifications();

  bool startNotifier() override;
  bool stopNotifier() override;
  long long currentReachabilityStatus() override;

 private:
  struct Host;
  struct Watch;

  const std::shared_ptr<const Host> host_;
  platform::Mutex mutex_;
  std::shared_ptr<Watch> watch_ VANTAMO_GUARDED_BY(mutex_);  // set while the notifier runs
};

}  // namespace vantamo::core

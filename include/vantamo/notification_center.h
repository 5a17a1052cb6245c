#pragma once

#include <functional>
#include <memory>
#include <string_view>

#include "vantamo/export.h"

namespace vantamo {

/// The process's default notification centre: whoever posts does not know who listens. A core posts
/// kNQReachabilityChangedNotification here.
///
/// Safe from any thread. Handlers run on the posting thread, outside any lock, so a handler may
/// add, remove and post. A handler that is already being called when its observer is removed on
/// another thread finishes its call.
class VANTAMO_EXPORT NotificationCenter {
 public:
  /// `sender` is whatever the poster named, or null.
  using Handler = std::function<void(const void* sender)>;

  /// The one centre of the process.
  static NotificationCenter& defaultCenter();

  NotificationCenter(const NotificationCenter&) = delete;
  NotificationCenter& operator=(const NotificationCenter&) = delete;
  ~NotificationCenter() = delete;

  /// Calls `handler` at each later post of `name`, until `observer` is removed.
  void addObserver(const void* observer, std::string_view name, Handler handler);
  /// Removes everything that `observer` listens to; harmless when it listens to nothing.
  void removeObserver(const void* observer);
  /// Calls the handlers of `name` in the order in which they were added. An exception of one of
  /// them ends the post and reaches the poster.
  void post(std::string_view name, const void* sender = nullptr);

 private:
  NotificationCenter();

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vantamo

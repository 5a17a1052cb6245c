#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

#include "cores/default/message_queue.h"
#include "cores/default/retry_policy.h"
#include "cores/default/transport.h"
#include "platform/mutex.h"

namespace vantamo::core {

/// Decides what is sent when; it has no thread and no clock of its own. A message's life:
///
///   1 queued     accepted and kept, waiting for those before it
///   2 attempted  in a request; at most one message at a time
///   3 waiting    the attempt failed (anything but a 2xx answer): kept until the backoff is over,
///                then 2 again; new messages do not shorten the wait
///   4 delivered  a 2xx answer: removed
///
/// step() is for the sending thread, which also gives the queue its time to tidy up; everything
/// else is safe from any thread.
class Sender {
 public:
  using Clock = std::chrono::steady_clock;
  using TimePoint = Clock::time_point;

  struct Parts {
    MessageQueue& queue;
    Transport& transport;
    /// The request for a message; nothing while there is no endpoint to send it to.
    std::function<std::optional<HttpRequest>(const QueuedMessage&)> requestFor;
    std::function<TimePoint()> now;
    /// Uniform from 0 to 1.
    std::function<double()> random;
  };

  explicit Sender(Parts parts) : parts_(std::move(parts)) {}

  /// At most one attempt. When to call again, or nothing when only a new message, a flush or a
  /// change of state can give work.
  [[nodiscard]] std::optional<TimePoint> step();

  void setRetryPolicy(RetryPolicy policy);
  /// Nothing is attempted while sending is off, but for the time of a drain.
  void setSending(bool sending);
  /// A drain keeps sending on, whatever setSending says; each begin needs its end.
  void beginDrain();
  void endDrain();
  /// In manual mode only messages that were there at the last flush() are attempted.
  void setManual(bool manual);
  void flush();
  /// Ends a wait: the next step attempts at once. An attempt that is under way, and fails, was
  /// begun before: it is repeated at once too. The count of failures stays.
  void retryNow();

 private:
  std::optional<TimePoint> attempt(const QueuedMessage& message);
  [[nodiscard]] TimePoint failed();
  [[nodiscard]] bool mayAttempt(std::int64_t sequence);
  [[nodiscard]] bool sendingIsOn() const VANTAMO_REQUIRES(mutex_) {
    return sending_ || drains_ > 0;
  }

  const Parts parts_;
  std::optional<std::int64_t> deliveredButKept_;  // step() only

  platform::Mutex mutex_;
  RetryPolicy policy_ VANTAMO_GUARDED_BY(mutex_);
  bool sending_ VANTAMO_GUARDED_BY(mutex_) = false;
  int drains_ VANTAMO_GUARDED_BY(mutex_) = 0;
  bool retryWanted_ VANTAMO_GUARDED_BY(mutex_) = false;
  bool manual_ VANTAMO_GUARDED_BY(mutex_) = false;
  std::int64_t flushedUpTo_ VANTAMO_GUARDED_BY(mutex_) = 0;
  unsigned failures_ VANTAMO_GUARDED_BY(mutex_) = 0;
  std::optional<TimePoint> notBefore_ VANTAMO_GUARDED_BY(mutex_);
};

}  // namespace vantamo::core

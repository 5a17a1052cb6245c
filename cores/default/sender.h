#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "cores/default/log_limiter.h"
#include "cores/default/message_queue.h"
#include "cores/default/retry_policy.h"
#include "platform/mutex.h"
#include "vantamo/default_core.h"
#include "vantamo/transport.h"

namespace vantamo::core {

/// Decides what is sent when; it has no thread and no clock of its own. A message's life:
///
///   1 queued     accepted and kept, waiting for those before it
///   2 attempted  in a request; as many messages at a time as are allowed, one unless set
///   3 waiting    the attempt failed: kept until the wait is over, then 2 again; new messages do
///                not shorten the wait
///   4 delivered  a 2xx answer: removed
///   5 dead       a 4xx answer that speaks of this message: among the dead letters
///
/// step() is for the sending thread; everything else is safe from any thread.
class Sender {
 public:
  using Clock = std::chrono::steady_clock;
  using TimePoint = Clock::time_point;

  /// What an attempt has led to.
  struct Conclusion {
    default_core::DeliveryReport report;
    Verdict verdict = Verdict::delivered;
    /// Of the message.
    std::size_t bytes = 0;
    std::size_t deadLettersDropped = 0;
  };

  struct Parts {
    /// The request for a message; nothing while there is no endpoint to send it to.
    std::function<std::optional<default_core::HttpRequest>(const QueuedMessage&)> requestFor;
    /// Whether there is a module of this name to send for. Absent: there always is.
    std::function<bool(const std::string& moduleName)> hasModule;
    /// For every wait.
    std::function<TimePoint()> now;
    /// The time of day.
    std::function<std::chrono::system_clock::time_point()> wallClock;
    /// Uniform from 0 to 1.
    std::function<double()> random;
    /// Hear at once of what was taken in by surprise, and of each attempt's end; throw nothing.
    /// Absent: nobody does.
    std::function<void(const QueueChange&)> found;
    std::function<void(const Conclusion&)> concluded;
  };

  explicit Sender(Parts parts) : parts_(std::move(parts)) {}

  /// What a step has done.
  struct Step {
    /// When to call again; nothing when only a new message or a call below can give work.
    std::optional<TimePoint> next;
    /// Whether the queue has taken in what there was.
    bool tookIn = false;
  };
  /// Takes in what is new, and sends until there is nothing left, an attempt fails, something else
  /// is to be done, or, after a moment, there is more to take in. With `reports`, which gets one
  /// for each attempt, no more attempts are made than may be under way at a time.
  [[nodiscard]] Step step(MessageQueue& queue, default_core::Transport& transport,
                          std::vector<default_core::DeliveryReport>* reports = nullptr);
  /// Ends a step soon: what is under way is waited for, and nothing else is begun.
  void cutShort() noexcept { cutShort_ = true; }

  void setRetryPolicy(RetryPolicy policy);
  void setDeadLetterBounds(DeadLetterBounds bounds);
  /// How many requests may be under way at a time, where the transport can.
  void setConcurrentPosts(std::size_t most) noexcept { concurrentPosts_ = most; }
  /// Nothing is attempted while sending is off, but for the time of a flush by a host.
  void setSending(bool sending);
  /// Keeps sending on, whatever setSending says; each begin needs its end.
  void beginHostFlush();
  void endHostFlush();
  /// In manual mode only messages that were there at the last flush() are attempted.
  void setManual(bool manual);
  /// Messages of the queue's run up to this number, and all of other runs, may go.
  void flush(std::uint64_t newestOrdinal);
  /// Another queue: its run begins to count at 1.
  void beginRun();
  /// Ends a wait, but not one that a server has asked for: the next step attempts at once. An
  /// attempt that is under way, and fails, was begun before: it is repeated at once too. The count
  /// of failures stays.
  void retryNow();
  /// The network has come back: ends a wait for the network after a moment, so that not all devices
  /// of a network call at the same time.
  void networkRecovered();

 private:
  enum class Reason { network, server, asked, endpoint, storage };
  struct Wait {
    TimePoint until;
    Reason reason = Reason::network;
  };

  class Round;  // sender_round.cpp

  void takeIn(MessageQueue& queue, Step& step);
  [[nodiscard]] bool mustWait(Step& step);
  /// `newest`: the message that was there when the step began.
  void sendRound(MessageQueue& queue, default_core::Transport& transport, std::uint64_t newest,
                 std::vector<default_core::DeliveryReport>* reports, Step& step);
  std::size_t bury(MessageQueue& queue, const default_core::DeliveryReport& report);
  TimePoint failed(Reason reason, std::optional<std::chrono::milliseconds> asked = {});
  /// Of another attempt that was under way when one had failed.
  TimePoint failedToo(std::optional<std::chrono::milliseconds> asked);
  TimePoint storageFailed(const std::exception& exception);
  TimePoint stopForStorage(const std::exception& exception);
  void succeeded();
  /// Whether a message may be attempted; `alone` when no attempt is under way.
  [[nodiscard]] bool mayAttempt(const QueuedMessage& message, std::uint64_t run, bool alone);
  [[nodiscard]] bool sendingIsOn() const VANTAMO_REQUIRES(mutex_) {
    return sending_ || hostFlushes_ > 0;
  }
  [[nodiscard]] std::int64_t wallMilliseconds() const;

  const Parts parts_;
  // step() alone
  unsigned storageFailures_ = 0;
  std::optional<TimePoint> storageNotBefore_;
  LogLimiter failureLog_;
  LogLimiter storageLog_;

  std::atomic<bool> cutShort_{false};
  std::atomic<std::size_t> concurrentPosts_{1};

  platform::Mutex mutex_;
  RetryPolicy policy_ VANTAMO_GUARDED_BY(mutex_);
  DeadLetterBounds deadLetterBounds_ VANTAMO_GUARDED_BY(mutex_);
  bool sending_ VANTAMO_GUARDED_BY(mutex_) = false;
  int hostFlushes_ VANTAMO_GUARDED_BY(mutex_) = 0;
  bool manual_ VANTAMO_GUARDED_BY(mutex_) = false;
  std::uint64_t flushedUpTo_ VANTAMO_GUARDED_BY(mutex_) = 0;
  unsigned failures_ VANTAMO_GUARDED_BY(mutex_) = 0;
  std::optional<Wait> wait_ VANTAMO_GUARDED_BY(mutex_);
  // Said while an attempt was under way.
  bool retryWanted_ VANTAMO_GUARDED_BY(mutex_) = false;
  bool recovered_ VANTAMO_GUARDED_BY(mutex_) = false;
};

}  // namespace vantamo::core

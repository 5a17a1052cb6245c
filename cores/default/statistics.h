#pragma once

#include "cores/default/message_queue.h"
#include "cores/default/sender.h"
#include "platform/mutex.h"
#include "vantamo/default_core.h"

namespace vantamo::core {

/// The most that may wait.
struct QueueBounds {
  std::size_t messages = 10'000;
  std::size_t bytes = 20UL * 1024 * 1024;
};

/// The figures that a host can ask for, and with them the bounds of the queue. Safe from any
/// thread.
class Statistics {
 public:
  enum class Refusal { full, tooLarge, storage, notRunning };

  void setBounds(QueueBounds bounds);
  void setDurable(bool durable);

  /// Another queue is used from now on: what is kept is counted anew. Answers the number that its
  /// messages are counted under.
  [[nodiscard]] std::uint64_t beginQueue();
  /// Counts a message of this size as accepted by that queue, if the bounds allow it.
  [[nodiscard]] bool accept(std::uint64_t queue, std::size_t bytes);
  /// Takes that back.
  void takeBack(std::uint64_t queue, std::size_t bytes);
  void refused(Refusal refusal);
  /// What the sender, or something else, has changed.
  void add(const Sender::Conclusion& conclusion);
  void add(const QueueChange& change);

  [[nodiscard]] default_core::Stats snapshot() const;

 private:
  mutable platform::Mutex mutex_;
  QueueBounds bounds_ VANTAMO_GUARDED_BY(mutex_);
  std::uint64_t queue_ VANTAMO_GUARDED_BY(mutex_) = 0;
  QueueChange kept_ VANTAMO_GUARDED_BY(mutex_);  // by that queue
  default_core::Stats stats_ VANTAMO_GUARDED_BY(mutex_);
};

}  // namespace vantamo::core

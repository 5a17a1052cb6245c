#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <thread>

#include "cores/default/sender.h"
#include "platform/mutex.h"

namespace vantamo::core {

/// The one thread that sends: calls Sender::step as often as the sender asks for it, and sleeps
/// otherwise. Safe from any thread.
class SenderWorker {
 public:
  explicit SenderWorker(Sender& sender) : sender_(sender) {}
  SenderWorker(const SenderWorker&) = delete;
  SenderWorker& operator=(const SenderWorker&) = delete;
  ~SenderWorker();

  /// Starts the thread unless it runs or was stopped. Throws std::system_error when the system
  /// gives none.
  void start();
  /// Says that there may be work.
  void wake();
  /// Ends the thread for good, waiting at most `limit` for a request in flight. False when it still
  /// runs; it then ends by itself.
  bool stop(std::chrono::milliseconds limit);

  /// Number of steps made so far.
  [[nodiscard]] std::uint64_t progress();
  /// Waits until more than `seen` steps were made; false when the deadline came first.
  bool waitForProgress(std::uint64_t seen, Sender::TimePoint deadline);

 private:
  void run();

  Sender& sender_;
  platform::Mutex mutex_;
  std::condition_variable_any changed_;
  std::thread thread_ VANTAMO_GUARDED_BY(mutex_);
  bool running_ VANTAMO_GUARDED_BY(mutex_) = false;
  bool stopping_ VANTAMO_GUARDED_BY(mutex_) = false;
  bool woken_ VANTAMO_GUARDED_BY(mutex_) = false;
  std::uint64_t steps_ VANTAMO_GUARDED_BY(mutex_) = 0;
};

}  // namespace vantamo::core

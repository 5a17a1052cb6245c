#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "cores/default/core_settings.h"
#include "cores/default/log_limiter.h"
#include "cores/default/message_queue.h"
#include "cores/default/sender.h"
#include "cores/default/statistics.h"
#include "platform/mutex.h"

namespace vantamo::core {

/// The queue, the sender and the one thread that drives them. The thread runs, and files are open,
/// while anybody wants that: a started module, or a call that waits. When nobody does, the thread
/// ends by itself, and nothing is left open.
///
/// Safe from any thread. Nothing here waits for disk or network but what says so.
class Delivery {
 public:
  using Clock = Sender::Clock;
  using Transport = default_core::Transport;
  using Callback = std::function<void(const default_core::DeliveryReport&)>;

  struct Parts {
    std::string queueFolder;
    Sender::Parts sender;
    /// Makes the HTTP client; called on the sending thread, each time that it starts.
    std::function<std::shared_ptr<Transport>()> makeTransport;
  };

  explicit Delivery(Parts parts)
      : queueFolder_(std::move(parts.queueFolder)),
        makeTransport_(std::move(parts.makeTransport)),
        wallClock_(parts.sender.wallClock),
        sender_(told(std::move(parts.sender))) {}

  /// Keeps thread and files for its life. Throws when the system gives no thread.
  class Use {
   public:
    explicit Use(Delivery& delivery) : delivery_(delivery) { delivery_.retain(); }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    ~Use() { delivery_.release(); }

   private:
    Delivery& delivery_;
  };

  void configure(const CoreSettings& settings);
  void setCallback(Callback callback);
  /// Begins or ends sending.
  void setSending(bool sending);
  void retryNow();
  void networkRecovered();
  /// Lets what was posted up to now go in manual mode.
  void flushQueue();

  /// Takes a message over. Throws when it is refused, and counts that; one that is too large for
  /// ever is counted and dropped, for to keep it would be to try again.
  void post(std::string_view moduleName, std::string_view body);
  [[nodiscard]] default_core::Stats stats() const { return statistics_.snapshot(); }

  /// Sends and waits until nothing is left; whether that is so.
  bool flush(Clock::time_point deadline);
  /// Waits until it is known what is left; whether that is nothing.
  bool isEmpty(Clock::time_point deadline);

  using Task = std::function<void(MessageQueue&, Statistics&)>;
  enum class Urgency { patient, interrupting };
  /// Runs the task on the sending thread and waits for its end, giving up a request that is under
  /// way if that is wanted. False when the deadline came first, or the task has thrown; or when a
  /// host's transport asks for it in a request: it is then run after that.
  bool perform(Task task, Clock::time_point deadline, Urgency urgency);

  /// Makes what was posted survive a power cut. For the sending thread, in a request of its own;
  /// waits for the disk.
  void secure() noexcept;

  /// The process ends: ends the thread for good, waiting at most that long.
  void stopForExit(std::chrono::milliseconds limit);

 private:
  struct OpenQueue {
    std::shared_ptr<MessageQueue> queue;
    std::uint64_t number = 0;  // of the statistics
  };
  struct PendingTask {
    Task task;
    bool done = false;
    bool failed = false;
  };

  [[nodiscard]] Sender::Parts told(Sender::Parts parts);
  void retain();
  void release();
  void open() VANTAMO_REQUIRES(mutex_);
  void wake();
  void wakeForPost();
  void run();
  void runOnce(MessageQueue& queue, Transport& transport, std::optional<Clock::time_point>& next);
  void runTasks(MessageQueue& queue);
  void sleepUntil(std::optional<Clock::time_point> next);
  [[nodiscard]] bool restUntil(std::optional<Clock::time_point> next) VANTAMO_REQUIRES(mutex_);
  [[nodiscard]] bool endsNow(MessageQueue& queue);
  void report(const default_core::DeliveryReport& report);
  template <class Condition>
  bool waitFor(Clock::time_point deadline, Urgency urgency, Condition condition)
      VANTAMO_REQUIRES(mutex_);
  [[nodiscard]] bool isSendingThread() const { return thread_ == std::this_thread::get_id(); }

  const std::string queueFolder_;
  const std::function<std::shared_ptr<Transport>()> makeTransport_;
  const std::function<std::chrono::system_clock::time_point()> wallClock_;
  Sender sender_;
  Statistics statistics_;
  platform::Locked<std::shared_ptr<const Callback>> callback_;
  platform::Locked<OpenQueue> queue_;
  platform::Locked<std::shared_ptr<Transport>> transport_;
  std::atomic<bool> woken_{false};
  std::atomic<bool> asleep_{false};  // a post has to wake the sending thread
  std::atomic<std::thread::id> thread_{};
  // The sending thread's alone.
  bool stepping_ = false;
  std::uint64_t newestSeen_ = 0;  // of the messages, when the last step began
  int quietRests_ = 0;            // in a row, without a message

  platform::Mutex logMutex_;
  LogLimiter refusalLog_ VANTAMO_GUARDED_BY(logMutex_);

  platform::Mutex mutex_;
  std::condition_variable_any changed_;
  int users_ VANTAMO_GUARDED_BY(mutex_) = 0;
  bool running_ VANTAMO_GUARDED_BY(mutex_) = false;
  bool stopping_ VANTAMO_GUARDED_BY(mutex_) = false;
  bool tookIn_ VANTAMO_GUARDED_BY(mutex_) = false;  // since the queue was opened
  std::deque<std::shared_ptr<PendingTask>> tasks_ VANTAMO_GUARDED_BY(mutex_);
};

}  // namespace vantamo::core

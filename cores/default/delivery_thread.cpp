// What the sending thread does.

#include <algorithm>
#include <utility>

#include "cores/default/delivery.h"
#include "support/debug_log.h"

namespace vantamo::core {
namespace {

using std::chrono::milliseconds;

// In the place of an HTTP client that could not be made.
class NoTransport final : public default_core::Transport {
 public:
  explicit NoTransport(std::string reason) : reason_(std::move(reason)) {}
  default_core::HttpResponse post(const default_core::HttpRequest& /*request*/) override {
    return {0, reason_, {}, {}};
  }
  void interrupt() noexcept override {}

 private:
  const std::string reason_;
};

}  // namespace

void Delivery::secure() noexcept {
  try {
    if (const auto queue = queue_.get().queue) queue->secure();
  } catch (const std::exception&) {  // what cannot be secured now is stored after the request
    return;
  }
}

void Delivery::run() {
  thread_ = std::this_thread::get_id();
  const auto queue = queue_.get().queue;
  for (bool ends = false; !ends;) {
    if (transport_.get() == nullptr) {
      try {
        transport_.set(makeTransport_());
      } catch (const std::exception& exception) {
        transport_.set(std::make_shared<NoTransport>(exception.what()));
      }
    }
    std::optional<Clock::time_point> next;
    try {
      runOnce(*queue, *transport_.get(), next);
    } catch (...) {  // short of memory, perhaps
      stepping_ = false;
      next = Clock::now() + std::chrono::seconds(1);
    }
    sleepUntil(next);
    ends = endsNow(*queue);
  }
}

void Delivery::runOnce(MessageQueue& queue, Transport& transport,
                       std::optional<Clock::time_point>& next) {
  woken_ = false;
  const std::uint64_t newest = queue.newestOrdinal();
  if (std::exchange(newestSeen_, newest) != newest) quietRests_ = 0;
  runTasks(queue);
  const bool isHeard = callback_.get() != nullptr;
  std::vector<default_core::DeliveryReport> reports;
  stepping_ = true;
  const Sender::Step step = sender_.step(queue, transport, isHeard ? &reports : nullptr);
  stepping_ = false;
  next = step.next;
  for (const auto& made : reports) report(made);
  const platform::MutexLock lock(mutex_);
  tookIn_ = tookIn_ || step.tookIn;
  changed_.notify_all();
}

void Delivery::runTasks(MessageQueue& queue) {
  for (;;) {
    std::shared_ptr<PendingTask> pending;
    {
      const platform::MutexLock lock(mutex_);
      if (tasks_.empty()) return;
      pending = tasks_.front();
      tasks_.pop_front();
    }
    bool failed = false;
    try {
      pending->task(queue, statistics_);
    } catch (const std::exception& exception) {
      failed = true;
      support::debugLog("-[NQCore openQueue]", [&] {
        return support::withValue("The queue cannot be read or changed: %@", exception.what());
      });
    }
    const platform::MutexLock lock(mutex_);
    pending->failed = failed;
    pending->done = true;
    changed_.notify_all();
  }
}

void Delivery::report(const default_core::DeliveryReport& report) {
  const auto callback = callback_.get();
  if (callback == nullptr) return;
  try {
    (*callback)(report);
  } catch (...) {
    support::debugLog("-[NQCore sendQueuedMessages]",
                      [] { return "The host's delivery callback has thrown"; });
  }
}

void Delivery::sleepUntil(std::optional<Clock::time_point> next) {
  const auto queue = queue_.get().queue;
  const platform::MutexLock lock(mutex_);
  if (restUntil(next)) return;
  asleep_ = true;
  while (asleep_ && !woken_ && !stopping_ && users_ > 0 && tasks_.empty()) {
    if (queue->newestOrdinal() != newestSeen_) break;
    if (!next) {
      changed_.wait(mutex_);
    } else if (changed_.wait_until(mutex_, *next) == std::cv_status::timeout) {
      break;
    }
  }
  asleep_ = false;
}

// Where messages have just come, more are to be expected: for a moment the thread looks for them by
// itself, so that they need not wake it, and are stored together. False when it has become quiet.
bool Delivery::restUntil(std::optional<Clock::time_point> next) {
  constexpr milliseconds rest{10};
  constexpr int mostQuietRests = 3;
  const auto begin = Clock::now();
  if (next && *next <= begin) return true;
  if (quietRests_ == mostQuietRests) return false;
  ++quietRests_;
  const auto end = next ? std::min(*next, begin + rest) : begin + rest;
  while (!woken_ && !stopping_ && users_ > 0 && tasks_.empty()) {
    if (changed_.wait_until(mutex_, end) == std::cv_status::timeout) break;
  }
  return true;
}

// Files are closed before the thread ends, and without anybody waiting for that; who comes
// meanwhile finds the thread running on.
bool Delivery::endsNow(MessageQueue& queue) {
  const auto isUnwanted = [this]() VANTAMO_REQUIRES(mutex_) {
    return stopping_ || (users_ == 0 && tasks_.empty());
  };
  {
    const platform::MutexLock lock(mutex_);
    if (!isUnwanted()) return false;
  }
  queue.rest();
  transport_.set(nullptr);
  const platform::MutexLock lock(mutex_);
  if (!isUnwanted()) return false;
  // What is kept in memory has nowhere else to be; and while the process ends, the last messages
  // still find the journal.
  if (queue.durable() && !stopping_) queue_.set({});
  thread_ = std::thread::id();
  running_ = false;
  changed_.notify_all();
  return true;
}

}  // namespace vantamo::core

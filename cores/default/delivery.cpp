#include "cores/default/delivery.h"

#include <utility>

#include "cores/default/background_thread.h"
#include "cores/default/durable_queue.h"
#include "platform/random.h"
#include "support/debug_log.h"

namespace vantamo::core {
namespace {

using std::chrono::milliseconds;

constexpr const char* operation = "-[NQCore postMessage:forModuleName:]";

std::shared_ptr<MessageQueue> openQueue(const std::string& folder) {
  try {
    return std::make_shared<DurableQueue>(folder);
  } catch (const std::exception& exception) {
    support::debugLog("-[NQCore openQueue]", [&] {
      return support::withValue("No queue file can be used, messages are kept in memory only: %@",
                                exception.what());
    });
    return makeMemoryQueue();
  }
}

std::string_view nameOf(Statistics::Refusal refusal) {
  switch (refusal) {
    case Statistics::Refusal::full: return "the queue is full";
    case Statistics::Refusal::tooLarge: return "it is larger than 1 MiB";
    case Statistics::Refusal::storage: return "the disk takes no more";
    case Statistics::Refusal::notRunning: return "the library does not run";
  }
  return "";
}

}  // namespace

void Delivery::configure(const CoreSettings& settings) {
  statistics_.setBounds({settings.maxQueuedMessages, settings.maxQueueBytes});
  sender_.setRetryPolicy(settings.retry);
  sender_.setConcurrentPosts(settings.maxConcurrentPosts);
  sender_.setDeadLetterBounds({settings.maxDeadLetters, settings.maxQueueBytes});
  sender_.setManual(settings.manualPost);
}

void Delivery::setCallback(Callback callback) {
  callback_.set(callback ? std::make_shared<const Callback>(std::move(callback)) : nullptr);
}

void Delivery::setSending(bool sending) {
  sender_.setSending(sending);
  wake();
}

void Delivery::retryNow() {
  sender_.retryNow();
  wake();
}

void Delivery::networkRecovered() {
  sender_.networkRecovered();
  wake();
}

void Delivery::flushQueue() {
  const auto queue = queue_.get().queue;
  if (queue == nullptr) return;
  sender_.flush(queue->newestOrdinal());
  wake();
}

Sender::Parts Delivery::told(Sender::Parts parts) {
  parts.found = [this](const QueueChange& change) { statistics_.add(change); };
  parts.concluded = [this](const Sender::Conclusion& conclusion) { statistics_.add(conclusion); };
  return parts;
}

void Delivery::post(std::string_view moduleName, std::string_view body) {
  const auto refuse = [&](Statistics::Refusal refusal) {
    statistics_.refused(refusal);
    const platform::MutexLock lock(logMutex_);
    refusalLog_.log(operation, Clock::now(), [&] {
      return support::withValues("A message of %@ bytes is refused: %@",
                                 std::to_string(body.size()), nameOf(refusal));
    });
  };
  if (body.size() > largestMessage) return refuse(Statistics::Refusal::tooLarge);
  const auto [queue, number] = queue_.get();
  if (queue == nullptr) {
    refuse(Statistics::Refusal::notRunning);
    throw std::logic_error("a message can be posted only after a module was enabled");
  }
  if (!statistics_.accept(number, body.size())) {
    refuse(Statistics::Refusal::full);
    throw std::length_error("the queue is full");
  }
  const auto accepted = std::chrono::duration_cast<milliseconds>(wallClock_().time_since_epoch());
  try {
    queue->append({platform::Uuid().view(), moduleName, body, accepted.count()});
  } catch (...) {
    statistics_.takeBack(number, body.size());
    refuse(Statistics::Refusal::storage);
    throw;
  }
  wakeForPost();
}

template <class Condition>
bool Delivery::waitFor(Clock::time_point deadline, Urgency urgency, Condition condition) {
  constexpr milliseconds repeat{20};  // a request may begin just behind an interruption
  while (!condition()) {
    const auto now = Clock::now();
    const bool nobodyWillDoIt = stopping_ && !running_;
    if (now >= deadline || nobodyWillDoIt) return false;
    auto until = deadline;
    if (urgency == Urgency::interrupting) {
      mutex_.unlock();  // it may be the host's, and call the library
      if (const auto transport = transport_.get()) transport->interrupt();
      mutex_.lock();
      if (condition()) return true;
      until = std::min(deadline, now + repeat);
    }
    changed_.wait_until(mutex_, until);
  }
  return true;
}

bool Delivery::flush(Clock::time_point deadline) {
  const auto isLeft = [this] { return stats().queuedMessages > 0; };
  if (isSendingThread()) return !isLeft();
  const Use use(*this);
  sender_.beginHostFlush();
  flushQueue();
  retryNow();
  bool empty = false;
  {
    const platform::MutexLock lock(mutex_);
    empty = waitFor(deadline, Urgency::patient,
                    [&]() VANTAMO_REQUIRES(mutex_) { return tookIn_ && !isLeft(); });
  }
  sender_.endHostFlush();
  return empty;
}

bool Delivery::isEmpty(Clock::time_point deadline) {
  const Use use(*this);
  const platform::MutexLock lock(mutex_);
  const bool known =
      waitFor(deadline, Urgency::patient, [&]() VANTAMO_REQUIRES(mutex_) { return tookIn_; });
  return known && stats().queuedMessages == 0;
}

bool Delivery::perform(Task task, Clock::time_point deadline, Urgency urgency) {
  if (isSendingThread() && !stepping_) {
    if (const auto queue = queue_.get().queue) task(*queue, statistics_);
    return true;
  }
  const Use use(*this);
  const auto pending = std::make_shared<PendingTask>(PendingTask{std::move(task)});
  const platform::MutexLock lock(mutex_);
  tasks_.push_back(pending);
  sender_.cutShort();
  woken_ = true;
  changed_.notify_all();
  if (isSendingThread()) return false;  // a host's transport, in a request: done after it
  const bool done = waitFor(deadline, urgency, [&] { return pending->done; });
  std::erase(tasks_, pending);
  return done && !pending->failed;
}

void Delivery::stopForExit(milliseconds limit) {
  const platform::MutexLock lock(mutex_);
  if (std::exchange(stopping_, true) || isSendingThread()) return;
  sender_.setSending(false);  // a thread that outlives the wait makes no connection any more
  woken_ = true;
  changed_.notify_all();
  waitFor(Clock::now() + limit, Urgency::interrupting,
          [&]() VANTAMO_REQUIRES(mutex_) { return !running_; });
}

void Delivery::wake() {
  if (woken_.exchange(true)) return;
  const platform::MutexLock lock(mutex_);
  changed_.notify_all();
}

// To wake a thread costs more than all the rest of a post: only one that sleeps for good is woken.
// It looks for messages after it has said that it sleeps, so that none is overlooked.
void Delivery::wakeForPost() {
  if (asleep_ && asleep_.exchange(false)) wake();
}

void Delivery::retain() {
  const platform::MutexLock lock(mutex_);
  if (!running_ && !stopping_) open();
  ++users_;
}

void Delivery::release() {
  const platform::MutexLock lock(mutex_);
  --users_;
  woken_ = true;
  changed_.notify_all();
}

void Delivery::open() {
  if (queue_.get().queue == nullptr) {
    auto queue = openQueue(queueFolder_);
    statistics_.setDurable(queue->durable());
    sender_.beginRun();
    queue_.set({std::move(queue), statistics_.beginQueue()});
  }
  tookIn_ = false;
  woken_ = false;
  startBackgroundThread([this] { run(); }).detach();
  running_ = true;
}

}  // namespace vantamo::core

#include "cores/default/sender.h"

#include <algorithm>
#include <utility>

namespace vantamo::core {
namespace {

using default_core::Transport;
using std::chrono::milliseconds;

constexpr const char* operation = "-[NQCore sendQueuedMessages]";

}  // namespace

void Sender::setRetryPolicy(RetryPolicy policy) {
  const platform::MutexLock lock(mutex_);
  policy_ = policy;
}

void Sender::setDeadLetterBounds(DeadLetterBounds bounds) {
  const platform::MutexLock lock(mutex_);
  deadLetterBounds_ = bounds;
}

void Sender::setSending(bool sending) {
  const platform::MutexLock lock(mutex_);
  sending_ = sending;
}

void Sender::beginHostFlush() {
  const platform::MutexLock lock(mutex_);
  ++hostFlushes_;
}

void Sender::endHostFlush() {
  const platform::MutexLock lock(mutex_);
  --hostFlushes_;
}

void Sender::setManual(bool manual) {
  const platform::MutexLock lock(mutex_);
  manual_ = manual;
}

void Sender::flush(std::uint64_t newestOrdinal) {
  const platform::MutexLock lock(mutex_);
  flushedUpTo_ = std::max(flushedUpTo_, newestOrdinal);
}

void Sender::beginRun() {
  const platform::MutexLock lock(mutex_);
  flushedUpTo_ = 0;
}

void Sender::retryNow() {
  const platform::MutexLock lock(mutex_);
  if (wait_ && wait_->reason != Reason::asked) wait_.reset();
  retryWanted_ = true;
}

void Sender::networkRecovered() {
  const TimePoint now = parts_.now();
  const double uniform = parts_.random();
  const platform::MutexLock lock(mutex_);
  recovered_ = true;
  if (!wait_ || wait_->reason != Reason::network) return;
  wait_->until = std::min(wait_->until, now + retryDelay(policy_, 1, uniform));
}

bool Sender::mayAttempt(const QueuedMessage& message, std::uint64_t run, bool alone) {
  const platform::MutexLock lock(mutex_);
  if (alone) retryWanted_ = recovered_ = false;
  return sendingIsOn() && (!manual_ || message.run != run || message.ordinal <= flushedUpTo_);
}

Sender::TimePoint Sender::failed(Reason reason, std::optional<milliseconds> asked) {
  const double uniform = parts_.random();
  const TimePoint now = parts_.now();
  const platform::MutexLock lock(mutex_);
  milliseconds delay = retryDelay(policy_, ++failures_, uniform);
  const bool again = std::exchange(retryWanted_, false);
  const bool recovered = std::exchange(recovered_, false);
  if (asked) {
    delay = std::max(delay, *asked);
    reason = Reason::asked;
  } else if (again) {
    delay = milliseconds(0);
  } else if (reason == Reason::endpoint) {
    delay = policy_.cap / 2 + retryDelay({policy_.cap / 2, policy_.cap / 2}, 1, uniform);
  } else if (reason == Reason::network && recovered) {
    delay = std::min(delay, retryDelay(policy_, 1, uniform));
  }
  wait_ = Wait{now + delay, reason};
  return wait_->until;
}

Sender::TimePoint Sender::failedToo(std::optional<milliseconds> asked) {
  const TimePoint now = parts_.now();
  const platform::MutexLock lock(mutex_);
  if (!wait_) return now;
  if (asked && now + *asked > wait_->until) wait_ = Wait{now + *asked, Reason::asked};
  return wait_->until;
}

Sender::TimePoint Sender::storageFailed(const std::exception& exception) {
  const double uniform = parts_.random();
  const TimePoint now = parts_.now();
  storageLog_.log(operation, now, [&] {
    return support::withValue("The queue's storage failed: %@", exception.what());
  });
  const platform::MutexLock lock(mutex_);
  // At least half of it: a storage that fails is not asked again and again.
  const milliseconds longest = retryDelay(policy_, ++storageFailures_, 1);
  storageNotBefore_ = now + longest / 2 + retryDelay({longest / 2, longest / 2}, 1, uniform);
  return *storageNotBefore_;
}

// What was delivered could not be noted, or what is to be sent could not be read.
Sender::TimePoint Sender::stopForStorage(const std::exception& exception) {
  const TimePoint until = storageFailed(exception);
  const platform::MutexLock lock(mutex_);
  wait_ = Wait{until, Reason::storage};
  return until;
}

void Sender::succeeded() {
  const platform::MutexLock lock(mutex_);
  failures_ = 0;
  wait_.reset();
}

std::int64_t Sender::wallMilliseconds() const {
  return std::chrono::duration_cast<milliseconds>(parts_.wallClock().time_since_epoch()).count();
}

// A storage that fails keeps nothing from being sent that was taken in before.
void Sender::takeIn(MessageQueue& queue, Step& step) {
  if (storageNotBefore_ && parts_.now() < *storageNotBefore_) return;
  try {
    const QueueChange found = queue.takeIn();
    if (parts_.found) parts_.found(found);
    step.tookIn = true;
    storageNotBefore_.reset();
    storageFailures_ = 0;
  } catch (const std::exception& exception) {
    storageFailed(exception);
  }
}

Sender::Step Sender::step(MessageQueue& queue, Transport& transport,
                          std::vector<default_core::DeliveryReport>* reports) {
  Step step;
  const std::uint64_t newest = queue.newestOrdinal();
  takeIn(queue, step);
  if (!mustWait(step)) sendRound(queue, transport, newest, reports, step);
  cutShort_ = false;
  try {
    const bool pauses = !step.next || *step.next > parts_.now();
    if (pauses) queue.settle();
  } catch (const std::exception& exception) {
    step.next = stopForStorage(exception);
  }
  if (storageNotBefore_ && (!step.next || *storageNotBefore_ < *step.next)) {
    step.next = storageNotBefore_;
  }
  return step;
}

bool Sender::mustWait(Step& step) {
  const platform::MutexLock lock(mutex_);
  if (!sendingIsOn()) return true;
  if (!wait_ || parts_.now() >= wait_->until) return false;
  step.next = wait_->until;
  return true;
}

}  // namespace vantamo::core

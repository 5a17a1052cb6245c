#include "cores/default/sender.h"

#include <algorithm>
#include <utility>

#include "support/debug_log.h"

namespace vantamo::core {
namespace {

constexpr const char* operation = "-[NQCore sendQueuedMessages]";

}  // namespace

void Sender::setRetryPolicy(RetryPolicy policy) {
  const platform::MutexLock lock(mutex_);
  policy_ = policy;
}

void Sender::setSending(bool sending) {
  const platform::MutexLock lock(mutex_);
  sending_ = sending;
}

void Sender::beginDrain() {
  const platform::MutexLock lock(mutex_);
  ++drains_;
}

void Sender::endDrain() {
  const platform::MutexLock lock(mutex_);
  --drains_;
}

void Sender::setManual(bool manual) {
  const platform::MutexLock lock(mutex_);
  manual_ = manual;
}

void Sender::flush() {
  const std::int64_t newest = parts_.queue.newestSequence();
  const platform::MutexLock lock(mutex_);
  flushedUpTo_ = std::max(flushedUpTo_, newest);
}

void Sender::retryNow() {
  const platform::MutexLock lock(mutex_);
  notBefore_.reset();
  retryWanted_ = true;
}

bool Sender::mayAttempt(std::int64_t sequence) {
  const platform::MutexLock lock(mutex_);
  retryWanted_ = false;
  return sendingIsOn() && (!manual_ || sequence <= flushedUpTo_);
}

Sender::TimePoint Sender::failed() {
  const double uniform = parts_.random();
  const TimePoint now = parts_.now();
  const platform::MutexLock lock(mutex_);
  const auto delay = retryDelay(policy_, ++failures_, uniform);
  notBefore_ = std::exchange(retryWanted_, false) ? now : now + delay;
  return *notBefore_;
}

std::optional<Sender::TimePoint> Sender::step() {
  parts_.queue.tidy();
  {
    const platform::MutexLock lock(mutex_);
    if (!sendingIsOn()) return {};
    if (notBefore_ && parts_.now() < *notBefore_) return notBefore_;
  }
  try {
    const auto message = parts_.queue.front();
    if (!message || !mayAttempt(message->sequence)) return {};
    return attempt(*message);
  } catch (const std::exception& exception) {
    support::debugLog(operation, [&] {
      return support::withValue("The queue or the transport failed: %@", exception.what());
    });
    return failed();
  }
}

std::optional<Sender::TimePoint> Sender::attempt(const QueuedMessage& message) {
  // A message whose removal failed was delivered all the same, and must not go out again.
  if (deliveredButKept_ != message.sequence) {
    const auto request = parts_.requestFor(message);
    if (!request) return {};
    const HttpResult result = parts_.transport.post(*request);
    if (!result.delivered()) {
      support::debugLog(operation, [&] {
        return support::withValues(
            "Message %@ not delivered, kept for another attempt: %@", message.id,
            result.status != 0 ? "status " + std::to_string(result.status) : result.error);
      });
      return failed();
    }
    deliveredButKept_ = message.sequence;
  }
  parts_.queue.remove(message.sequence);
  deliveredButKept_.reset();
  const platform::MutexLock lock(mutex_);
  failures_ = 0;
  notBefore_.reset();
  return parts_.now();
}

}  // namespace vantamo::core

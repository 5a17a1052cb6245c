#include "cores/default/sender.h"

#include <algorithm>
#include <utility>

#include "cores/default/queue_store.h"

namespace vantamo::core {
namespace {

using default_core::HttpResponse;
using default_core::Outcome;
using default_core::Transport;
using std::chrono::milliseconds;

constexpr const char* operation = "-[NQCore sendQueuedMessages]";

// Whatever a host's transport throws is an attempt without an answer.
HttpResponse postGuarded(Transport& transport, const default_core::HttpRequest& request) {
  HttpResponse response;
  try {
    response = transport.post(request);
  } catch (const std::exception& exception) {
    response.error = exception.what();
  } catch (...) {
    response.error = "the transport failed";
  }
  if (response.status == 0 && response.error.empty()) response.error = "no answer";
  return response;
}

std::string describe(const HttpResponse& response) {
  return response.status != 0 ? "status " + std::to_string(response.status) : response.error;
}

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

bool Sender::mayAttempt(const QueuedMessage& message, std::uint64_t run) {
  const platform::MutexLock lock(mutex_);
  retryWanted_ = false;
  recovered_ = false;
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
    step.found = queue.takeIn();
    step.tookIn = true;
    storageNotBefore_.reset();
    storageFailures_ = 0;
  } catch (const std::exception& exception) {
    storageFailed(exception);
  }
}

Sender::Step Sender::step(MessageQueue& queue, Transport& transport) {
  Step step;
  takeIn(queue, step);
  try {
    attemptNext(queue, transport, step);
  } catch (const std::exception& exception) {
    step.report.reset();
    step.next = stopForStorage(exception);
  }
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

void Sender::attemptNext(MessageQueue& queue, Transport& transport, Step& step) {
  {
    const platform::MutexLock lock(mutex_);
    if (!sendingIsOn()) return;
    if (wait_ && parts_.now() < wait_->until) {
      step.next = wait_->until;
      return;
    }
  }
  const QueuedMessage* message = queue.front();
  if (message == nullptr || !mayAttempt(*message, queue.run())) return;
  step.bytes = message->body.size();
  step.report =
      default_core::DeliveryReport{message->id, message->moduleName, Outcome::retrying, 0, {}};
  if (!isMessageId(message->id) || step.bytes > largestMessage) {
    return bury(queue, 0, "what is stored is not a message", step);
  }
  // It would hold up all messages behind it.
  if (parts_.hasModule && !parts_.hasModule(message->moduleName)) {
    return bury(queue, 0, "there is no module of its name", step);
  }
  const auto request = parts_.requestFor(*message);
  if (!request) {
    step.report.reset();
    return;
  }
  conclude(queue, postGuarded(transport, *request), step);
}

void Sender::conclude(MessageQueue& queue, const HttpResponse& response, Step& step) {
  default_core::DeliveryReport& report = *step.report;
  report.status = response.status;
  step.verdict = judge(response.status);
  if (step.verdict == Verdict::delivered) {
    queue.delivered();
    report.outcome = Outcome::delivered;
    succeeded();
    step.next = parts_.now();
    return;
  }
  report.reason = describe(response);
  if (step.verdict == Verdict::messageWrong)
    return bury(queue, response.status, report.reason, step);
  if (step.verdict == Verdict::networkFailed) {
    step.next = failed(Reason::network);
  } else if (step.verdict == Verdict::endpointWrong) {
    step.next = failed(Reason::endpoint);
  } else {
    step.next = failed(Reason::server, retryAfter(response, parts_.wallClock()));
  }
  failureLog_.log(operation, parts_.now(), [&] {
    return support::withValues("Message %@ not delivered, kept for another attempt: %@", report.id,
                               report.reason);
  });
}

void Sender::bury(MessageQueue& queue, int status, const std::string& reason, Step& step) {
  DeadLetterBounds bounds;
  {
    const platform::MutexLock lock(mutex_);
    bounds = deadLetterBounds_;
  }
  step.deadLettersDropped = queue.bury(status, reason, wallMilliseconds(), bounds);
  step.verdict = Verdict::messageWrong;
  step.report->outcome = Outcome::dead;
  step.report->reason = reason;
  failureLog_.log(operation, parts_.now(), [&] {
    return support::withValues("Message %@ is refused for good: %@", step.report->id, reason);
  });
  succeeded();
  step.next = parts_.now();
}

}  // namespace vantamo::core

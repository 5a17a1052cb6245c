#include "cores/default/statistics.h"

#include <algorithm>

namespace vantamo::core {
namespace {

using default_core::Outcome;

std::size_t count(std::int64_t number) {
  return static_cast<std::size_t>(std::max<std::int64_t>(number, 0));
}

}  // namespace

void Statistics::setBounds(QueueBounds bounds) {
  const platform::MutexLock lock(mutex_);
  bounds_ = bounds;
}

void Statistics::setDurable(bool durable) {
  const platform::MutexLock lock(mutex_);
  stats_.durable = durable;
}

std::uint64_t Statistics::beginQueue() {
  const platform::MutexLock lock(mutex_);
  kept_ = {};
  return ++queue_;
}

bool Statistics::accept(std::uint64_t queue, std::size_t bytes) {
  const platform::MutexLock lock(mutex_);
  if (queue == queue_) {
    if (count(kept_.messages) + 1 > bounds_.messages) return false;
    if (count(kept_.bytes) + bytes > bounds_.bytes) return false;
    kept_ += {1, static_cast<std::int64_t>(bytes), 0};
  }
  ++stats_.accepted;
  return true;
}

void Statistics::takeBack(std::uint64_t queue, std::size_t bytes) {
  const platform::MutexLock lock(mutex_);
  if (queue == queue_) kept_ += {-1, -static_cast<std::int64_t>(bytes), 0};
  --stats_.accepted;
}

void Statistics::refused(Refusal refusal) {
  const platform::MutexLock lock(mutex_);
  ++stats_.refused;
  switch (refusal) {
    case Refusal::full: ++stats_.refusedFull; break;
    case Refusal::tooLarge: ++stats_.refusedTooLarge; break;
    case Refusal::storage: ++stats_.refusedByStorage; break;
    case Refusal::notRunning: ++stats_.refusedNotRunning; break;
  }
}

void Statistics::add(const Sender::Conclusion& conclusion) {
  const platform::MutexLock lock(mutex_);
  const default_core::DeliveryReport& report = conclusion.report;
  stats_.lastStatus = report.status;
  if (!report.reason.empty()) stats_.lastError = report.reason;
  if (report.outcome == Outcome::retrying) {
    ++stats_.retried;
    if (conclusion.verdict == Verdict::networkFailed) ++stats_.retriedNetwork;
    if (conclusion.verdict == Verdict::serverFailed) ++stats_.retriedServer;
    if (conclusion.verdict == Verdict::endpointWrong) ++stats_.retriedEndpoint;
    return;
  }
  kept_ += {-1, -static_cast<std::int64_t>(conclusion.bytes), 0};
  if (report.outcome == Outcome::delivered) {
    ++stats_.delivered;
  } else {
    ++stats_.dead;
    stats_.deadLettersDropped += conclusion.deadLettersDropped;
    kept_.deadLetters += 1 - static_cast<std::int64_t>(conclusion.deadLettersDropped);
  }
}

void Statistics::add(const QueueChange& change) {
  const platform::MutexLock lock(mutex_);
  kept_ += change;
}

default_core::Stats Statistics::snapshot() const {
  const platform::MutexLock lock(mutex_);
  default_core::Stats stats = stats_;
  stats.queuedMessages = count(kept_.messages);
  stats.queuedBytes = count(kept_.bytes);
  stats.deadLetters = count(kept_.deadLetters);
  return stats;
}

}  // namespace vantamo::core

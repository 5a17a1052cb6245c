#include "cores/default/durable_queue.h"

#include <utility>

namespace vantamo::core {
namespace {

constexpr std::size_t rotateAt = 64UL * 1024;
constexpr std::size_t readAheadMessages = 64;
constexpr std::size_t readAheadBytes = 128UL * 1024;
constexpr auto checkEvery = std::chrono::seconds(1);

QueueChange difference(const QueueSize& now, const QueueChange& before) {
  return {static_cast<std::int64_t>(now.messages) - before.messages,
          static_cast<std::int64_t>(now.bytes) - before.bytes,
          static_cast<std::int64_t>(now.deadLetters) - before.deadLetters};
}

}  // namespace

DurableQueue::DurableQueue(std::string applicationFolder)
    : path_(std::move(applicationFolder)),
      application_(platform::PrivateFolder::at(path_)),
      slot_(QueueSlot::acquire(application_)),
      journal_(slot_->folder()) {}

DurableQueue::~DurableQueue() { DurableQueue::rest(); }

QueueChange DurableQueue::takeIn() {
  const auto now = Clock::now();
  const bool hasNews = !spool_ || !left_.empty() || journal_.end() != imported_;
  if (!hasNews && !recount_ && now - checked_ < checkEvery) return {};
  checked_ = now;
  restoreFiles();
  mending([this](Spool& /*files*/) {
    importJournal();
    if (imported_ >= rotateAt) rotateJournal();
    adoptOrphans();
  });
  if (!recount_) return {};
  const QueueChange change = recount();
  recount_ = false;
  return change;
}

QueueChange DurableQueue::recount() {
  settle();
  const QueueSize actual = mending([](Spool& files) { return files.store().size(); });
  const QueueChange change = difference(actual, counted_);
  counted_ += change;
  return change;
}

const QueuedMessage* DurableQueue::front() {
  // No more than what the marks can hold is delivered without the database knowing.
  if (markFailed_ || unsettled_.size() >= DeliveredMarks::capacity) settle();
  if (next_ == ahead_.size()) {
    ahead_ = mending([this](Spool& files) {
      return files.store().after(doneThrough_, readAheadMessages, readAheadBytes);
    });
    next_ = 0;
  }
  return next_ == ahead_.size() ? nullptr : &ahead_[next_];
}

void DurableQueue::advance() {
  const QueuedMessage& done = ahead_[next_++];
  doneThrough_ = done.sequence;
  counted_ += {-1, -static_cast<std::int64_t>(done.body.size()), 0};
}

void DurableQueue::delivered() {
  const std::string id = ahead_.at(next_).id;
  advance();
  markFailed_ = !spool().marks().add(id) || markFailed_;
  unsettled_.push_back(id);
}

std::size_t DurableQueue::bury(int status, std::string_view reason, std::int64_t now,
                               const DeadLetterBounds& bounds) {
  try {
    const std::size_t dropped = spool().store().bury(ahead_.at(next_), status, reason, now, bounds);
    advance();
    counted_.deadLetters += 1 - static_cast<std::int64_t>(dropped);
    return dropped;
  } catch (const DamagedStore& damage) {
    mend(damage);  // the message comes up again
    throw;
  }
}

void DurableQueue::settle() {
  if (unsettled_.empty()) return;
  mending([this](Spool& files) {
    if (!unsettled_.empty()) files.store().removeThrough(doneThrough_);
  });
  unsettled_.clear();
  markFailed_ = false;
}

// Sequences begin anew with another opening.
void DurableQueue::forgetAhead() {
  ahead_.clear();
  next_ = 0;
  doneThrough_ = 0;
  unsettled_.clear();
  markFailed_ = false;
}

std::vector<BuriedMessage> DurableQueue::deadLetters() {
  return mending([](Spool& files) { return files.store().deadLetters(); });
}

QueueChange DurableQueue::revive(const std::optional<std::vector<std::string>>& ids) {
  const QueueChange change = mending([&](Spool& files) { return files.store().revive(ids); });
  counted_ += change;
  return change;
}

QueueChange DurableQueue::purge(const std::optional<std::vector<std::string>>& ids) {
  const QueueChange change = mending([&](Spool& files) { return files.store().purge(ids); });
  counted_ += change;
  return change;
}

void DurableQueue::rest() noexcept {
  try {
    if (spool_) restoreFiles();  // what was erased is known to the open ones alone
    settle();
  } catch (const std::exception&) {  // kept for the next opening
    markFailed_ = true;
  }
  spool_.reset();
}

}  // namespace vantamo::core

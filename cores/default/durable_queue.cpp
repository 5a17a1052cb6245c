#include "cores/default/durable_queue.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace vantamo::core {
namespace {

constexpr std::size_t rotateAt = 64UL * 1024;
constexpr std::size_t readAheadMessages = 256;
constexpr std::size_t readAheadBytes = 256UL * 1024;
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
  writeMarks();
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

const QueuedMessage* DurableQueue::at(std::size_t place) {
  writeMarks();
  // No more than what the marks can hold is delivered without the database knowing.
  if (markFailed_ || unsettled_.size() + place >= DeliveredMarks::capacity) settle();
  if (place >= ahead_.size()) {
    auto more = mending([this](Spool& files) {
      return files.store().after(readThrough_, readAheadMessages, readAheadBytes);
    });
    if (!more.empty()) readThrough_ = more.back().sequence;
    std::ranges::move(more, std::back_inserter(ahead_));
  }
  return place >= ahead_.size() ? nullptr : &ahead_[place];
}

// Before another message is sent: deliveries that came together are marked at once.
void DurableQueue::writeMarks() noexcept {
  if (spool_) markFailed_ = !spool_->marks().write() || markFailed_;
}

// All before it is delivered or dead.
std::int64_t DurableQueue::doneThrough() const {
  return ahead_.empty() ? readThrough_ : ahead_.front().sequence - 1;
}

void DurableQueue::doneWith(const std::deque<QueuedMessage>::const_iterator& message) {
  counted_ += {-1, -static_cast<std::int64_t>(message->body.size()), 0};
  ahead_.erase(message);
}

void DurableQueue::delivered(const std::string& id) {
  Spool& files = spool();  // which may read the list anew
  const auto message = std::ranges::find(ahead_, id, &QueuedMessage::id);
  if (message == ahead_.end()) {
    // The database was opened anew while the message was under way.
    counted_ += files.store().removeById({id});
    return;
  }
  files.marks().add(id);
  unsettled_.push_back(id);
  unsettledPlaces_.push_back(message->sequence);
  doneWith(message);
}

std::size_t DurableQueue::bury(const std::string& id, int status, std::string_view reason,
                               std::int64_t now, const DeadLetterBounds& bounds) {
  Spool& files = spool();  // which may read the list anew
  const auto message = std::ranges::find(ahead_, id, &QueuedMessage::id);
  if (message == ahead_.end()) throw std::out_of_range("a message that was read anew meanwhile");
  try {
    const std::size_t dropped = files.store().bury(*message, status, reason, now, bounds);
    doneWith(message);
    counted_.deadLetters += 1 - static_cast<std::int64_t>(dropped);
    return dropped;
  } catch (const DamagedStore& damage) {
    mend(damage);  // the message comes up again
    throw;
  }
}

void DurableQueue::settle() {
  if (unsettled_.empty()) return;
  try {
    mending([this](Spool& files) {
      if (!unsettled_.empty()) files.store().removeThrough(doneThrough(), unsettledPlaces_);
    });
  } catch (...) {
    writeMarks();
    throw;
  }
  if (spool_) spool_->marks().forget();
  unsettled_.clear();
  unsettledPlaces_.clear();
  markFailed_ = false;
}

// Sequences begin anew with another opening.
void DurableQueue::forgetAhead() {
  ahead_.clear();
  readThrough_ = 0;
  unsettled_.clear();
  unsettledPlaces_.clear();
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

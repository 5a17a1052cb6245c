#include "cores/default/durable_queue.h"

#include <algorithm>
#include <utility>

#include "support/debug_log.h"

namespace vantamo::core {
namespace {

constexpr const char* operation = "-[NQCore openQueue]";
constexpr std::size_t rotateAt = 64UL * 1024;
constexpr std::size_t readAheadMessages = 64;
constexpr std::size_t readAheadBytes = 128UL * 1024;
constexpr auto lookEvery = std::chrono::seconds(30);
constexpr auto checkEvery = std::chrono::seconds(1);

// Removes the files that `spares` does not hold back; whether all of them are gone.
template <class Spares>
bool removeFiles(const platform::PrivateFolder& folder, Spares spares) {
  bool all = true;
  for (const std::string& name : folder.names()) {
    if (!spares(name)) all = folder.remove(name) && all;
  }
  return all;
}

bool isLock(const std::string& name) { return name == QueueSlot::lockName; }
bool isAside(const std::string& name) { return name.find(".aside-") != std::string::npos; }

// Copies what `to` does not have yet.
void copyMessages(Spool& from, std::int64_t after, Spool& to) {
  const std::vector<std::string> ids = to.store().ids();
  const std::unordered_set<std::string> known(ids.begin(), ids.end());
  const auto isKnown = [&known](const Message& message) { return known.contains(message.id); };
  for (;;) {
    auto batch = from.store().after(after, readAheadMessages, readAheadBytes);
    if (batch.empty()) break;
    after = batch.back().sequence;
    std::erase_if(batch, isKnown);
    to.store().import({batch.begin(), batch.end()}, 0, 0);
  }
  auto letters = from.store().deadLetters();
  std::erase_if(letters, isKnown);
  to.store().importDead(letters);
}

// What is lost with files that were both erased and damaged is lost.
void copyReadable(Spool& from, std::int64_t after, Spool& to) {
  try {
    copyMessages(from, after, to);
  } catch (const DamagedStore& damage) {
    support::debugLog(operation, [&] {
      return support::withValue("Not all of the erased files could be read: %@", damage.what());
    });
  }
}

QueueChange difference(const QueueSize& now, const QueueSize& before) {
  const auto minus = [](std::size_t a, std::size_t b) {
    return static_cast<std::int64_t>(a) - static_cast<std::int64_t>(b);
  };
  return {minus(now.messages, before.messages), minus(now.bytes, before.bytes),
          minus(now.deadLetters, before.deadLetters)};
}

}  // namespace

DurableQueue::DurableQueue(std::string applicationFolder)
    : path_(std::move(applicationFolder)),
      application_(platform::PrivateFolder::at(path_)),
      slot_(QueueSlot::acquire(application_)),
      journal_(slot_->folder()) {}

DurableQueue::~DurableQueue() { DurableQueue::rest(); }

// --- Files

Spool& DurableQueue::spool() {
  if (!spool_) {
    auto opened = std::make_unique<Spool>(slot_->folder(), journal_.current().id);
    if (!unsettled_.empty()) opened->store().removeById(unsettled_);
    spool_ = std::move(opened);
    recount_ = true;
    forgetAhead();
  }
  return *spool_;
}

template <class Work>
auto DurableQueue::mending(Work work) {
  try {
    return work(spool());
  } catch (const DamagedStore& damage) {
    mend(damage);
    return work(spool());
  }
}

// The database is damaged though it was sound when it was opened.
void DurableQueue::mend(const DamagedStore& damage) {
  support::debugLog(operation, [&] {
    return support::withValue("The queue's file was damaged while in use: %@", damage.what());
  });
  spool_.reset();
  const std::string aside = Spool::setDatabaseAside(slot_->folder());
  recount_ = true;
  spool_ = std::make_unique<Spool>(slot_->folder(), journal_.current().id, aside);
  spool_->import(journal_.current(), journal_.run(), journalHeaderSize, imported_);
  spool_->store().removeById(unsettled_);
  forgetAhead();
}

// Sequences begin anew with another database.
void DurableQueue::forgetAhead() {
  ahead_.clear();
  next_ = 0;
  doneThrough_ = 0;
  unsettled_.clear();
  markFailed_ = false;
}

// Somebody may have erased or replaced files that are in use. They can still be read.
void DurableQueue::restoreFiles() {
  // Closing moves the log, which can be written still, into the database.
  if (spool_ && spool_->store().isInPlace() && !spool_->store().isLogInPlace()) spool_.reset();
  const bool journalHasName = platform::hasName(journal_.current().file);
  const bool storeHasName = !spool_ || spool_->store().isInPlace();
  const bool slotInPlace = application_.isInPlace() && slot_->isInPlace();
  if (journalHasName && storeHasName && slotInPlace) return;
  support::debugLog(operation, [] { return "The queue's files were erased and are made anew"; });
  bool folderInPlace = true;
  if (!slotInPlace) {
    auto application = platform::PrivateFolder::at(path_);
    auto slot = QueueSlot::acquire(application);
    folderInPlace = slot.folder().isSameAs(slot_->folder());
    application_ = std::move(application);
    slot_.emplace(std::move(slot));
  }
  const bool storeInPlace = storeHasName && folderInPlace;
  if (!storeInPlace) {
    auto fresh = std::make_unique<Spool>(slot_->folder(), journal_.current().id);
    if (spool_) copyReadable(*spool_, doneThrough_, *fresh);
    fresh->store().import({}, journal_.current().id, imported_);
    spool_ = std::move(fresh);
    recount_ = true;
    forgetAhead();
  }
  if (!journalHasName || !folderInPlace) rotateJournal();
}

void DurableQueue::importJournal() {
  const auto added =
      spool().import(journal_.current(), journal_.run(), imported_, journal_.written());
  imported_ = added.position;
  counted_.messages += added.messages;
  counted_.bytes += added.bytes;
}

// Delivered messages do not stay in the journal for long.
void DurableQueue::rotateJournal() {
  const auto [segment, end] = journal_.rotate(slot_->folder());
  const std::size_t begin = std::exchange(imported_, journalHeaderSize);
  const auto added = spool().import(*segment, journal_.run(), begin, end);
  counted_.messages += added.messages;
  counted_.bytes += added.bytes;
  spool().discard(slot_->folder(), *segment);
}

// What other processes of the application have left.
void DurableQueue::adoptOrphans() {
  const auto now = Clock::now();
  if (looked_ && now - *looked_ < lookEvery) return;
  looked_ = now;
  for (const std::string& name : QueueSlot::namesIn(application_)) {
    if (name == slot_->name()) continue;
    try {
      const auto orphan = QueueSlot::tryAcquire(application_, name);
      if (orphan) adopt(*orphan);
    } catch (const std::exception& exception) {
      support::debugLog(operation, [&] {
        return support::withValues("The queue folder %@ cannot be taken over: %@", name,
                                   exception.what());
      });
    }
  }
}

void DurableQueue::adopt(const QueueSlot& orphan) {
  if (Spool::holdsMessages(orphan.folder())) {
    recount_ = true;
    Spool files(orphan.folder(), 0);
    copyMessages(files, 0, spool());
  }
  const auto isKept = [](const std::string& file) { return isLock(file) || isAside(file); };
  const bool emptied = removeFiles(orphan.folder(), isKept);
  if (emptied && orphan.folder().names().size() == 1 &&
      orphan.folder().remove(QueueSlot::lockName)) {
    application_.remove(orphan.name());
  }
}

// --- The sending thread

QueueChange DurableQueue::takeIn() {
  const auto now = Clock::now();
  const bool hasNews = !spool_ || journal_.written() != imported_;
  if (!hasNews && !recount_ && now - checked_ < checkEvery) return {};
  checked_ = now;
  restoreFiles();
  mending([this](Spool& /*files*/) {
    importJournal();
    if (imported_ >= rotateAt) rotateJournal();
    adoptOrphans();
  });
  return std::exchange(recount_, false) ? recount() : QueueChange{};
}

QueueChange DurableQueue::recount() {
  settle();
  const QueueSize actual = mending([](Spool& files) { return files.store().size(); });
  const QueueChange change = difference(actual, counted_);
  counted_ = actual;
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
  --counted_.messages;
  counted_.bytes -= done.body.size();
}

void DurableQueue::delivered() {
  const std::string id = ahead_[next_].id;
  advance();
  markFailed_ = !spool().marks().add(id) || markFailed_;
  unsettled_.push_back(id);
}

std::size_t DurableQueue::bury(int status, std::string_view reason, std::int64_t now,
                               std::size_t keep) {
  try {
    const std::size_t dropped = spool().store().bury(ahead_[next_], status, reason, now, keep);
    advance();
    counted_.deadLetters += 1 - dropped;
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

std::vector<BuriedMessage> DurableQueue::deadLetters() {
  return mending([](Spool& files) { return files.store().deadLetters(); });
}

QueueChange DurableQueue::revive(const std::optional<std::vector<std::string>>& ids) {
  mending([&](Spool& files) { files.store().revive(ids); });
  return recount();
}

QueueChange DurableQueue::purge(const std::optional<std::vector<std::string>>& ids) {
  mending([&](Spool& files) { files.store().purge(ids); });
  return recount();
}

bool DurableQueue::erase(QueueChange& change) {
  change = {};
  try {
    change = takeIn();
    rotateJournal();
  } catch (const std::exception&) {  // what cannot be read can be erased all the same
    journal_.rotate(slot_->folder());
    imported_ = journalHeaderSize;
  }
  change += difference({}, counted_);
  counted_ = {};
  spool_.reset();
  forgetAhead();
  const std::string live = journal_.current().name;
  bool all = removeFiles(slot_->folder(),
                         [&live](const std::string& name) { return isLock(name) || name == live; });
  for (const std::string& name : QueueSlot::namesIn(application_)) {
    if (name == slot_->name()) continue;
    const auto orphan = QueueSlot::tryAcquire(application_, name);
    all = orphan && orphan->erase() && all;
  }
  return all;
}

void DurableQueue::rest() noexcept {
  try {
    settle();
  } catch (const std::exception&) {  // kept for the next opening
    markFailed_ = true;
  }
  spool_.reset();
}

}  // namespace vantamo::core

// What the queue on disk does about its files.

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "cores/default/durable_queue.h"
#include "support/debug_log.h"

namespace vantamo::core {
namespace {

constexpr const char* operation = "-[NQCore openQueue]";
constexpr std::size_t batchMessages = 256;
constexpr std::size_t batchBytes = 1024UL * 1024;
constexpr auto lookEvery = std::chrono::seconds(30);

void report(std::string_view format, std::string_view value) {
  support::debugLog(operation, [&] { return support::withValue(format, value); });
}

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

// Moves messages and dead letters, batch by batch. Whoever is killed between the two halves of a
// batch leaves it in both, under the same ids.
void moveMessages(QueueStore& from, QueueStore& to) {
  const std::vector<std::string> ids = to.ids();
  const std::unordered_set<std::string> known(ids.begin(), ids.end());
  const auto isKnown = [&known](const Message& message) { return known.contains(message.id); };
  for (std::int64_t moved = 0;;) {
    auto batch = from.after(moved, batchMessages, batchBytes);
    if (batch.empty()) break;
    moved = batch.back().sequence;
    std::erase_if(batch, isKnown);
    to.import({batch.begin(), batch.end()}, 0, 0);
    from.removeThrough(moved);
  }
  auto letters = from.deadLetters();
  std::erase_if(letters, isKnown);
  to.importDead(letters);
  from.purge({});
}

}  // namespace

Spool& DurableQueue::spool() {
  if (spool_) return *spool_;
  auto opened = std::make_unique<Spool>(slot_->folder(), ownSegments());
  opened->leaveOut(unsettled_);
  if (!unsettled_.empty()) opened->store().removeById(unsettled_);
  // Whether this database lacks what another one was given.
  bool isBehind = false;
  const auto goOnAt = [&](const Journal::Segment& segment, std::size_t& position) {
    const std::size_t known = opened->positionIn(segment);
    isBehind = isBehind || known < position;
    position = known;
  };
  goOnAt(journal_.current(), imported_);
  for (LeftSegment& left : left_) goOnAt(*left.segment, left.position);
  if (isBehind) opened->leaveOut(opened->store().ids());
  spool_ = std::move(opened);
  recount_ = true;
  forgetAhead();
  return *spool_;
}

std::vector<std::uint64_t> DurableQueue::ownSegments() const {
  std::vector<std::uint64_t> ids = {journal_.current().id};
  for (const LeftSegment& left : left_) ids.push_back(left.segment->id);
  return ids;
}

// The database is damaged though it was sound when it was opened.
void DurableQueue::mend(const DamagedStore& damage) {
  report("The queue's file was damaged while in use: %@", damage.what());
  spool_.reset();
  Spool::setDatabaseAside(slot_->folder());
  static_cast<void>(spool());
}

// Somebody may have erased or replaced files that are in use. They can still be read.
void DurableQueue::restoreFiles() {
  // Closing moves the log, which can be written still, into the database.
  if (spool_ && spool_->store().isInPlace(slot_->folder()) && !spool_->store().isLogInPlace()) {
    spool_.reset();
  }
  const auto& current = journal_.current();
  const bool slotInPlace = application_.isInPlace() && slot_->isInPlace();
  const bool storeInPlace = !spool_ || spool_->store().isInPlace(slot_->folder());
  if (slotInPlace && storeInPlace && slot_->folder().holds(current.name, current.file)) return;
  report("Files of the queue in %@ were erased and are made anew", path_);
  if (!slotInPlace) {
    auto application = platform::PrivateFolder::at(path_);
    auto slot = QueueSlot::acquire(application, slot_->name());
    application_ = std::move(application);
    slot_.emplace(std::move(slot));
  }
  restoreStore();
  if (!slot_->folder().holds(current.name, current.file)) rotateJournal();
}

void DurableQueue::restoreStore() {
  if (!spool_ || spool_->store().isInPlace(slot_->folder())) return;
  spool_->store().leaveNamesAlone();
  auto fresh = std::make_unique<Spool>(slot_->folder(), ownSegments());
  fresh->leaveOut(unsettled_);
  recount_ = true;
  try {
    spool_->store().removeThrough(doneThrough(), unsettledPlaces_);
    moveMessages(spool_->store(), fresh->store());
  } catch (const DamagedStore& damage) {
    report("Not all of the erased files could be read: %@", damage.what());
  }
  fresh->store().import({}, journal_.current().id, imported_);
  for (const LeftSegment& left : left_) {
    fresh->store().import({}, left.segment->id, left.position);
  }
  spool_ = std::move(fresh);
  forgetAhead();
}

void DurableQueue::importJournal() {
  const Journal::Written written = journal_.written();
  Spool& files = spool();
  bool whole = true;
  while (!left_.empty()) {
    LeftSegment& left = left_.front();
    whole = files.import(*left.segment, journal_.run(), left.position, left.end) && whole;
    files.discard(slot_->folder(), *left.segment);
    left_.pop_front();
  }
  whole = files.import(journal_.current(), journal_.run(), imported_, written.end) && whole;
  counted_ += {static_cast<std::int64_t>(written.messages - told_.messages),
               static_cast<std::int64_t>(written.bytes - told_.bytes), 0};
  told_ = written;
  if (!whole) recount_ = true;
}

// Delivered messages do not stay in the journal for long.
void DurableQueue::rotateJournal() {
  const std::size_t position = imported_;
  auto [segment, end] = journal_.rotate(slot_->folder());
  imported_ = journalHeaderSize;
  left_.push_back({std::move(segment), position, end});
  importJournal();
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
    Spool files(orphan.folder(), {});
    moveMessages(files.store(), spool().store());
  }
  const auto isKept = [](const std::string& file) { return isLock(file) || isAside(file); };
  const bool emptied = removeFiles(orphan.folder(), isKept);
  if (emptied && orphan.folder().names().size() == 1 &&
      orphan.folder().remove(QueueSlot::lockName)) {
    application_.remove(orphan.name());
  }
}

bool DurableQueue::erase(QueueChange& change) {
  const Journal::Written written = journal_.clear();
  const auto untold = [](std::uint64_t now, std::uint64_t then) {
    return static_cast<std::int64_t>(now - then);
  };
  change = {-counted_.messages - untold(written.messages, told_.messages),
            -counted_.bytes - untold(written.bytes, told_.bytes), -counted_.deadLetters};
  told_ = written;
  counted_ = {};
  imported_ = journalHeaderSize;
  left_.clear();
  spool_.reset();
  forgetAhead();
  const std::string live = journal_.current().name;
  bool all = removeFiles(slot_->folder(),
                         [&live](const std::string& name) { return isLock(name) || name == live; });
  for (const std::string& name : QueueSlot::namesIn(application_)) {
    if (name == slot_->name()) continue;
    try {
      const auto orphan = QueueSlot::tryAcquire(application_, name);
      all = orphan && orphan->erase() && all;
    } catch (const std::exception& exception) {
      all = false;
      report("A queue folder cannot be erased: %@", exception.what());
    }
  }
  return all;
}

}  // namespace vantamo::core

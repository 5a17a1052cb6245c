#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cores/default/message_queue.h"
#include "cores/default/queue_slot.h"
#include "cores/default/spool.h"

namespace vantamo::core {

/// The queue on disk. A message's way through it:
///
///   append()     written to the journal: survives the end of the process
///   takeIn()     moved into the database, in batches: survives a power cut
///   delivered()  marked, in a file of fixed size: not sent again by a later process
///   settle()     removed from the database, in batches
///
/// Files that are erased, replaced or damaged while they are in use are made anew; what was in them
/// is carried over as far as it can be read.
class DurableQueue final : public MessageQueue {
 public:
  /// Owns a folder in the application's, which is made when missing. Throws when none can be had or
  /// the journal cannot be begun.
  explicit DurableQueue(std::string applicationFolder);
  ~DurableQueue() override;

  void append(const MessageView& message) override { journal_.append(message); }
  [[nodiscard]] std::uint64_t newestOrdinal() const noexcept override {
    return journal_.newestOrdinal();
  }
  [[nodiscard]] std::uint64_t run() const noexcept override { return journal_.run(); }
  [[nodiscard]] bool durable() const noexcept override { return true; }

  [[nodiscard]] QueueChange takeIn() override;
  void secure() override { journal_.sync(slot_->folder()); }
  [[nodiscard]] const QueuedMessage* at(std::size_t place) override;
  void delivered(const std::string& id) override;
  std::size_t bury(const std::string& id, int status, std::string_view reason, std::int64_t now,
                   const DeadLetterBounds& bounds) override;
  void settle() override;
  [[nodiscard]] std::vector<BuriedMessage> deadLetters() override;
  QueueChange revive(const std::optional<std::vector<std::string>>& ids) override;
  QueueChange purge(const std::optional<std::vector<std::string>>& ids) override;
  bool erase(QueueChange& change) override;
  void rest() noexcept override;

 private:
  using Clock = std::chrono::steady_clock;
  // A segment that takes no records any more, and is not yet imported whole.
  struct LeftSegment {
    std::unique_ptr<Journal::Segment> segment;
    std::size_t position = 0;
    std::size_t end = 0;
  };

  // Files: durable_queue_files.cpp
  [[nodiscard]] Spool& spool();
  [[nodiscard]] std::vector<std::uint64_t> ownSegments() const;
  void mend(const DamagedStore& damage);
  void restoreFiles();
  void restoreStore();
  void importJournal();
  void rotateJournal();
  void adoptOrphans();
  void adopt(const QueueSlot& orphan);

  void forgetAhead();
  void writeMarks() noexcept;
  [[nodiscard]] std::int64_t doneThrough() const;
  void doneWith(const std::deque<QueuedMessage>::const_iterator& message);
  [[nodiscard]] QueueChange recount();
  // Runs `work` on the spool, and once more when the database is found damaged and was mended.
  template <class Work>
  auto mending(Work work) {
    try {
      return work(spool());
    } catch (const DamagedStore& damage) {
      mend(damage);
      return work(spool());
    }
  }

  const std::string path_;
  platform::PrivateFolder application_;
  std::optional<QueueSlot> slot_;
  Journal journal_;
  std::size_t imported_ = journalHeaderSize;  // of the segment that takes records
  std::deque<LeftSegment> left_;

  std::unique_ptr<Spool> spool_;
  std::deque<QueuedMessage> ahead_;  // read, and not yet done with
  std::int64_t readThrough_ = 0;
  std::vector<std::string> unsettled_;         // delivered, and in the database still
  std::vector<std::int64_t> unsettledPlaces_;  // of those
  bool markFailed_ = false;
  QueueChange counted_;                      // what whoever asks takeIn() knows of, but for
  Journal::Written told_;                    // what was appended after this
  bool recount_ = false;                     // there may be other messages than those
  std::optional<Clock::time_point> looked_;  // for orphans
  Clock::time_point checked_;                // whether the files are in place
};

}  // namespace vantamo::core

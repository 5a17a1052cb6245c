#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "cores/default/delivered_marks.h"
#include "cores/default/journal.h"
#include "cores/default/queue_store.h"

namespace vantamo::core {

/// The files of one queue folder but the journal segment that takes records: database, marks and
/// segments that earlier runs have left. Opening brings them together into the database:
///
///   1. A database that is damaged or foreign, or has a second name, is renamed to
///      queue.sqlite.salvage-ID; what can be read of it goes into a new one, and then it is kept,
///      never erased, as queue.sqlite.aside-ID. A process that is killed meanwhile leaves this to
///      the next.
///   2. Segments are imported from where the database says they were, or whole where it is new.
///   3. Messages that are marked as delivered are removed.
///
/// For one thread. Throws as QueueStore does, DamagedStore excepted.
class Spool {
 public:
  /// `live`: the ids of the segments that are left alone.
  Spool(const platform::PrivateFolder& folder, const std::vector<std::uint64_t>& live);

  /// Whether there is a database or a segment to open; opening makes what is missing.
  [[nodiscard]] static bool holdsMessages(const platform::PrivateFolder& folder);
  /// Renames the database with what stands beside it, so that the next opening reads what it can of
  /// it and makes another one.
  static void setDatabaseAside(const platform::PrivateFolder& folder);

  [[nodiscard]] QueueStore& store() { return *store_; }
  [[nodiscard]] DeliveredMarks& marks() { return *marks_; }

  /// Where the import of a segment goes on.
  [[nodiscard]] std::size_t positionIn(const Journal::Segment& segment);
  /// Adds the segment's records from `position` to `end`, some at a time; `position` moves on with
  /// each lot that is stored. Whether all of it was records.
  bool import(const Journal::Segment& segment, std::uint64_t run, std::size_t& position,
              std::size_t end);
  /// Leaves messages with these ids out of what is imported.
  void leaveOut(const std::vector<std::string>& ids);
  /// Forgets and removes a segment that was imported whole; keeps it aside when it was damaged.
  void discard(const platform::PrivateFolder& folder, const Journal::Segment& segment);

 private:
  void openStore(const platform::PrivateFolder& folder);
  void readSetAside(const platform::PrivateFolder& folder);
  void importLeftSegments(const platform::PrivateFolder& folder,
                          const std::vector<std::uint64_t>& live);

  std::unique_ptr<QueueStore> store_;
  std::optional<DeliveredMarks> marks_;
  std::unordered_set<std::string> known_;  // ids that are not imported again
  std::unordered_set<std::uint64_t> damaged_;
};

}  // namespace vantamo::core

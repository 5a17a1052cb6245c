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
///   1. A database that is damaged or foreign, or stands there as a link, is set aside, never
///      erased; what can be read of it goes into a new one.
///   2. Segments are imported from where the database says they were, or whole where it is new.
///   3. Messages that are marked as delivered are removed.
///
/// For one thread. Throws as QueueStore does, DamagedStore excepted.
class Spool {
 public:
  /// `live`: the id of the segment that is left alone. `aside`: a database of this queue that was
  /// set aside, to be read too.
  Spool(const platform::PrivateFolder& folder, std::uint64_t live, std::string aside = {});

  /// Whether there is a database or a segment to open; opening makes what is missing.
  [[nodiscard]] static bool holdsMessages(const platform::PrivateFolder& folder);
  /// Renames the database with what stands beside it; answers its new name.
  static std::string setDatabaseAside(const platform::PrivateFolder& folder);

  [[nodiscard]] QueueStore& store() { return *store_; }
  [[nodiscard]] DeliveredMarks& marks() { return *marks_; }

  struct Imported {
    std::size_t position = 0;
    std::size_t messages = 0;
    std::size_t bytes = 0;
  };
  /// Adds the segment's records from `position` to `end`; where it was imported to, and how much.
  Imported import(const Journal::Segment& segment, std::uint64_t run, std::size_t position,
                  std::size_t end);
  /// Forgets and removes a segment that was imported whole; keeps it aside when it was damaged.
  void discard(const platform::PrivateFolder& folder, const Journal::Segment& segment);

 private:
  void openStore(const platform::PrivateFolder& folder, std::string aside);
  void importLeftSegments(const platform::PrivateFolder& folder, std::uint64_t live);

  std::unique_ptr<QueueStore> store_;
  std::optional<DeliveredMarks> marks_;
  std::unordered_set<std::string> known_;  // in a database made anew
  std::unordered_set<std::uint64_t> damaged_;
};

}  // namespace vantamo::core

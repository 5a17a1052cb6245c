#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cores/default/message_queue.h"
#include "platform/private_folder.h"

namespace vantamo::core {

/// Thrown for a database that cannot be trusted: damaged, or not made by this code.
class DamagedStore : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The database of one queue folder, queue.sqlite: messages, dead letters, and how far each journal
/// segment was moved in. Opened for this object alone. For one thread.
///
/// import() waits for the disk: what it has taken survives a power cut. The others do not, because
/// what they would lose by one is only that a message goes out again, under the same id.
///
/// Every operation throws DamagedStore when the database is found damaged, and another
/// std::exception when the storage fails otherwise; the operation has then changed nothing.
class QueueStore {
 public:
  static constexpr const char* fileName = "queue.sqlite";

  /// Opens the database in `folder`, making it when missing, and checks it whole.
  explicit QueueStore(const platform::PrivateFolder& folder);
  QueueStore(const QueueStore&) = delete;
  QueueStore& operator=(const QueueStore&) = delete;
  ~QueueStore();

  /// Whether this is the database in `folder` still, and whether the log beside it is there.
  [[nodiscard]] bool isInPlace(const platform::PrivateFolder& folder) const noexcept;
  [[nodiscard]] bool isLogInPlace() const noexcept;

  /// The files have lost their names, and another database stands under them: closing must not
  /// touch what is beside that.
  void leaveNamesAlone() noexcept;

  /// How far the segment was imported; 0 when it is not known.
  [[nodiscard]] std::size_t importedOf(std::uint64_t segment);
  /// Adds messages behind all others, and notes that the segment was imported up to `position`
  /// (no segment: 0).
  void import(const std::vector<Message>& messages, std::uint64_t segment, std::size_t position);
  void forgetSegment(std::uint64_t segment);

  /// Messages behind `sequence`, oldest first: at most `count`, and no more once their bodies
  /// exceed `bytes`.
  [[nodiscard]] std::vector<QueuedMessage> after(std::int64_t sequence, std::size_t count,
                                                 std::size_t bytes);
  /// Removes all messages up to `sequence`, and those of `others` behind it.
  void removeThrough(std::int64_t sequence, const std::vector<std::int64_t>& others = {});
  QueueChange removeById(const std::vector<std::string>& ids);
  [[nodiscard]] std::vector<std::string> ids();
  [[nodiscard]] QueueSize size();

  /// Moves a message to the dead letters; how many older ones had to go.
  std::size_t bury(const QueuedMessage& message, int status, std::string_view reason,
                   std::int64_t now, const DeadLetterBounds& bounds);
  void importDead(const std::vector<BuriedMessage>& letters);
  [[nodiscard]] std::vector<BuriedMessage> deadLetters();
  QueueChange revive(const std::optional<std::vector<std::string>>& ids);
  QueueChange purge(const std::optional<std::vector<std::string>>& ids);

 private:
  struct Database;

  void insertLetter(const BuriedMessage& letter);

  // Closed last: to close any descriptor of the file gives up the database's lock on it.
  const platform::UniqueFd file_;
  const std::string logPath_;
  const std::unique_ptr<Database> database_;
};

/// What can still be read of a damaged or foreign database, at `path` and beside it; nothing of it
/// is run or written.
struct Salvage {
  std::vector<QueuedMessage> messages;
  std::vector<BuriedMessage> deadLetters;
};
[[nodiscard]] Salvage salvage(const std::string& path);

/// Whether the id can be sent as a header: 36 hexadecimal digits and hyphens.
[[nodiscard]] bool isMessageId(std::string_view id);

}  // namespace vantamo::core

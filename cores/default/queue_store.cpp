#include "cores/default/queue_store.h"

#include <fcntl.h>
#include <sqlite3.h>

#include <array>
#include <unordered_set>
#include <utility>

#include "cores/default/queue_store_database.h"
#include "cores/default/size_from.h"
#include "cores/default/sqlite_access.h"
#include "platform/file.h"

namespace vantamo::core {
namespace {

constexpr int busyMilliseconds = 1000;

constexpr std::array<const char*, 3> schema = {
    "CREATE TABLE messages(sequence INTEGER PRIMARY KEY, id TEXT NOT NULL, module TEXT NOT NULL, "
    "body BLOB NOT NULL, accepted INTEGER NOT NULL, run INTEGER NOT NULL, ordinal INTEGER NOT "
    "NULL)",
    "CREATE TABLE dead(place INTEGER PRIMARY KEY, id TEXT NOT NULL, module TEXT NOT NULL, "
    "body BLOB NOT NULL, accepted INTEGER NOT NULL, run INTEGER NOT NULL, ordinal INTEGER NOT "
    "NULL, "
    "status INTEGER NOT NULL, reason TEXT NOT NULL, died INTEGER NOT NULL)",
    "CREATE TABLE segments(id INTEGER PRIMARY KEY, imported INTEGER NOT NULL)"};

void createSchema(SQLite::Database& database) {
  SQLite::Transaction transaction(database);
  for (const char* table : schema) database.exec(table);
  transaction.commit();
}

// Exactly the tables above and nothing else, such as triggers.
void checkSchema(SQLite::Database& database) {
  SQLite::Statement entries(database, "SELECT sql FROM sqlite_schema ORDER BY rowid");
  std::size_t found = 0;
  while (entries.executeStep()) {
    const std::string sql = entries.getColumn(0).getString();
    if (found == schema.size() || sql != schema[found]) throw DamagedStore("a foreign schema");
    ++found;
  }
  if (found == 0) return createSchema(database);
  if (found != schema.size()) throw DamagedStore("a foreign schema");
}

void checkPages(SQLite::Database& database) {
  const auto verdict = database.execAndGet("PRAGMA quick_check(1)").getString();
  if (verdict != "ok") throw DamagedStore(verdict);
}

// What no check of pages sees: a file that says it must not be written, and places beyond which no
// message could be added.
void checkContent(SQLite::Database& database) {
  constexpr std::int64_t last = std::int64_t{1} << 62;
  SQLite::Statement places(database,
                           "SELECT COUNT(*) FROM messages WHERE sequence < 1 OR sequence > ?");
  places.bind(1, last);
  places.executeStep();
  if (places.getColumn(0).getInt64() > 0) throw DamagedStore("impossible places");
  if (sqlite3_db_readonly(database.getHandle(), "main") != 0) throw DamagedStore("not writable");
}

SQLite::Database openIn(const platform::PrivateFolder& folder) {
  try {
    SQLite::Database database(folder.pathOf(QueueStore::fileName), SQLite::OPEN_READWRITE,
                              busyMilliseconds);
    distrustSchema(database);
    // Exclusive, so that no file is shared through memory: cut short by somebody, that would end
    // the process.
    database.exec(
        "PRAGMA locking_mode=EXCLUSIVE; PRAGMA journal_mode=WAL; PRAGMA cache_size=-512;"
        "PRAGMA cell_size_check=ON; PRAGMA journal_size_limit=1048576;"
        "PRAGMA wal_autocheckpoint=250;");
    checkSchema(database);
    checkPages(database);
    checkContent(database);
    return database;
  } catch (const SQLite::Exception& error) {
    if (isDamage(error)) throw DamagedStore(error.what());
    throw;
  }
}

}  // namespace

QueueStore::QueueStore(const platform::PrivateFolder& folder)
    : file_(folder.open(fileName).fd),
      logPath_(folder.pathOf(fileName) + "-wal"),
      database_(std::make_unique<Database>(openIn(folder))) {}

QueueStore::~QueueStore() = default;

bool QueueStore::isInPlace(const platform::PrivateFolder& folder) const noexcept {
  return folder.holds(fileName, file_);
}

bool QueueStore::isLogInPlace() const noexcept { return platform::exists(logPath_); }

void QueueStore::leaveNamesAlone() noexcept {
  int keepsLog = 1;
  sqlite3_file_control(database_->connection.getHandle(), "main", SQLITE_FCNTL_PERSIST_WAL,
                       &keepsLog);
}

std::size_t QueueStore::importedOf(std::uint64_t segment) {
  return database_->read([&] {
    SQLite::Statement row(database_->connection, "SELECT imported FROM segments WHERE id = ?");
    row.bind(1, static_cast<std::int64_t>(segment));
    return row.executeStep() ? sizeFrom(row.getColumn(0).getInt64()) : std::size_t{0};
  });
}

void QueueStore::import(const std::vector<Message>& messages, std::uint64_t segment,
                        std::size_t position) {
  Database& database = *database_;
  std::int64_t last = database.last;
  database.write(true, [&] {
    for (const Message& message : messages) {
      const StatementUse use(database.insert);
      bindMessage(database.insert, message);
      database.insert.bind(7, ++last);
      database.insert.exec();
    }
    if (segment == 0) return;
    const StatementUse use(database.setImported);
    database.setImported.bind(1, static_cast<std::int64_t>(segment));
    database.setImported.bind(2, static_cast<std::int64_t>(position));
    database.setImported.exec();
  });
  database.last = last;
}

void QueueStore::forgetSegment(std::uint64_t segment) {
  database_->write(false, [&] {
    SQLite::Statement forget(database_->connection, "DELETE FROM segments WHERE id = ?");
    forget.bind(1, static_cast<std::int64_t>(segment));
    forget.exec();
  });
}

std::vector<QueuedMessage> QueueStore::after(std::int64_t sequence, std::size_t count,
                                             std::size_t bytes) {
  return database_->read([&] {
    std::vector<QueuedMessage> messages;
    SQLite::Statement& rows = database_->selectAfter;
    const StatementUse use(rows);
    rows.bind(1, sequence);
    rows.bind(2, static_cast<std::int64_t>(count));
    for (std::size_t read = 0; read <= bytes && rows.executeStep();) {
      messages.push_back(messageIn(rows));
      read += messages.back().body.size();
    }
    return messages;
  });
}

void QueueStore::removeThrough(std::int64_t sequence, const std::vector<std::int64_t>& others) {
  database_->write(false, [&] {
    database_->run(database_->deleteThrough, sequence);
    for (const std::int64_t other : others) {
      if (other > sequence) database_->run(database_->deleteOne, other);
    }
  });
}

QueueChange QueueStore::removeById(const std::vector<std::string>& ids) {
  const std::unordered_set<std::string> wanted(ids.begin(), ids.end());
  QueueChange change;
  database_->write(false, [&] {
    std::vector<std::int64_t> sequences;
    SQLite::Statement rows(database_->connection,
                           "SELECT sequence, id, LENGTH(body) FROM messages");
    while (rows.executeStep()) {
      if (!wanted.contains(rows.getColumn(1).getString())) continue;
      sequences.push_back(rows.getColumn(0).getInt64());
      change += {-1, -rows.getColumn(2).getInt64(), 0};
    }
    for (const std::int64_t sequence : sequences) database_->run(database_->deleteOne, sequence);
  });
  return change;
}

std::vector<std::string> QueueStore::ids() {
  return database_->read([&] {
    std::vector<std::string> ids;
    SQLite::Statement rows(database_->connection,
                           "SELECT id FROM messages UNION ALL SELECT id FROM dead");
    while (rows.executeStep()) ids.push_back(rows.getColumn(0).getString());
    return ids;
  });
}

QueueSize QueueStore::size() {
  return database_->read([&] {
    SQLite::Statement row(database_->connection,
                          "SELECT COUNT(*), IFNULL(SUM(LENGTH(body)), 0), "
                          "(SELECT COUNT(*) FROM dead) FROM messages");
    row.executeStep();
    const auto number = [&row](int column) { return sizeFrom(row.getColumn(column).getInt64()); };
    return QueueSize{number(0), number(1), number(2)};
  });
}

}  // namespace vantamo::core

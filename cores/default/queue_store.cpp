#include "cores/default/queue_store.h"

#include <fcntl.h>
#include <sqlite3.h>

#include <array>
#include <unordered_set>
#include <utility>

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

void bindMessage(SQLite::Statement& statement, const Message& message) {
  statement.bind(1, message.id);
  statement.bind(2, message.moduleName);
  statement.bindNoCopy(3, message.body.data(), static_cast<int>(message.body.size()));
  statement.bind(4, message.accepted);
  statement.bind(5, static_cast<std::int64_t>(message.run));
  statement.bind(6, static_cast<std::int64_t>(message.ordinal));
}

}  // namespace

struct QueueStore::Database {
  explicit Database(const platform::PrivateFolder& folder) : connection(openIn(folder)) {
    last = connection.execAndGet("SELECT IFNULL(MAX(sequence), 0) FROM messages").getInt64();
  }

  // Whether a commit waits for the disk.
  void setLasting(bool wanted) {
    if (lasting == wanted) return;
    connection.exec(wanted ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
    lasting = wanted;
  }

  // Runs `change` as one transaction that happens whole or not at all.
  template <class Change>
  void write(bool lastingly, Change change) {
    try {
      setLasting(lastingly);
      SQLite::Transaction transaction(connection);
      change();
      transaction.commit();
    } catch (const SQLite::Exception& error) {
      if (isDamage(error)) throw DamagedStore(error.what());
      throw;
    }
  }

  template <class Read>
  auto read(Read readRows) {
    try {
      return readRows();
    } catch (const SQLite::Exception& error) {
      if (isDamage(error)) throw DamagedStore(error.what());
      throw;
    }
  }

  void run(SQLite::Statement& statement, std::int64_t number) {
    const StatementUse use(statement);
    statement.bind(1, number);
    statement.exec();
  }

  // Calls `each` with the place of each dead letter of these ids, or all. How many bytes and
  // letters that was.
  template <class Each>
  QueueChange forDead(const std::optional<std::vector<std::string>>& ids, Each each) {
    std::unordered_set<std::string> wanted;
    if (ids) wanted.insert(ids->begin(), ids->end());
    std::vector<std::int64_t> places;
    QueueChange found;
    SQLite::Statement rows(connection, "SELECT place, id, LENGTH(body) FROM dead ORDER BY place");
    while (rows.executeStep()) {
      if (ids && !wanted.contains(rows.getColumn(1).getString())) continue;
      places.push_back(rows.getColumn(0).getInt64());
      found += {1, rows.getColumn(2).getInt64(), 1};
    }
    for (const std::int64_t place : places) each(place);
    return found;
  }

  SQLite::Database connection;
  std::int64_t last = 0;  // the sequence given last
  bool lasting = true;    // FULL is what a connection begins with

  SQLite::Statement insert{connection,
                           "INSERT INTO messages(id, module, body, accepted, run, ordinal, "
                           "sequence) VALUES(?, ?, ?, ?, ?, ?, ?)"};
  SQLite::Statement insertDead{connection,
                               "INSERT INTO dead(id, module, body, accepted, run, ordinal, status, "
                               "reason, died) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)"};
  SQLite::Statement setImported{
      connection,
      "INSERT INTO segments(id, imported) VALUES(?, ?) ON CONFLICT(id) DO UPDATE SET "
      "imported = excluded.imported"};
  SQLite::Statement selectAfter{connection,
                                std::string("SELECT ") + messageColumns +
                                    " FROM messages WHERE sequence > ? ORDER BY sequence LIMIT ?"};
  SQLite::Statement deleteThrough{connection, "DELETE FROM messages WHERE sequence <= ?"};
  SQLite::Statement deleteOne{connection, "DELETE FROM messages WHERE sequence = ?"};
};

QueueStore::QueueStore(const platform::PrivateFolder& folder)
    : file_(folder.open(fileName).fd),
      logPath_(folder.pathOf(fileName) + "-wal"),
      database_(std::make_unique<Database>(folder)) {}

QueueStore::~QueueStore() = default;

bool QueueStore::isInPlace(const platform::PrivateFolder& folder) const noexcept {
  return folder.holds(fileName, file_);
}

bool QueueStore::isLogInPlace() const noexcept { return platform::exists(logPath_); }

std::size_t QueueStore::importedOf(std::uint64_t segment) {
  return database_->read([&] {
    SQLite::Statement row(database_->connection, "SELECT imported FROM segments WHERE id = ?");
    row.bind(1, static_cast<std::int64_t>(segment));
    return row.executeStep() ? static_cast<std::size_t>(row.getColumn(0).getInt64())
                             : std::size_t{0};
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

void QueueStore::removeThrough(std::int64_t sequence) {
  database_->write(false, [&] { database_->run(database_->deleteThrough, sequence); });
}

void QueueStore::removeById(const std::vector<std::string>& ids) {
  const std::unordered_set<std::string> wanted(ids.begin(), ids.end());
  database_->write(false, [&] {
    std::vector<std::int64_t> sequences;
    SQLite::Statement rows(database_->connection, "SELECT sequence, id FROM messages");
    while (rows.executeStep()) {
      if (wanted.contains(rows.getColumn(1).getString())) {
        sequences.push_back(rows.getColumn(0).getInt64());
      }
    }
    for (const std::int64_t sequence : sequences) database_->run(database_->deleteOne, sequence);
  });
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
    const auto number = [&row](int column) {
      return static_cast<std::size_t>(row.getColumn(column).getInt64());
    };
    return QueueSize{number(0), number(1), number(2)};
  });
}

std::size_t QueueStore::bury(const QueuedMessage& message, int status, std::string_view reason,
                             std::int64_t now, const DeadLetterBounds& bounds) {
  Database& database = *database_;
  std::size_t dropped = 0;
  database.write(true, [&] {
    const Message& kept = message;
    insertLetter({kept, status, std::string(reason), now});
    database.run(database.deleteOne, message.sequence);
    SQLite::Statement drop(
        database.connection,
        "DELETE FROM dead WHERE place IN (SELECT place FROM (SELECT place, ROW_NUMBER() OVER "
        "newest "
        "AS number, SUM(LENGTH(body)) OVER newest AS bytes FROM dead WINDOW newest AS "
        "(ORDER BY place DESC)) WHERE number > ? OR bytes > ?)");
    drop.bind(1, static_cast<std::int64_t>(bounds.messages));
    drop.bind(2, static_cast<std::int64_t>(bounds.bytes));
    dropped = static_cast<std::size_t>(drop.exec());
  });
  return dropped;
}

void QueueStore::insertLetter(const BuriedMessage& letter) {
  SQLite::Statement& insert = database_->insertDead;
  const StatementUse use(insert);
  bindMessage(insert, letter);
  insert.bind(7, letter.status);
  insert.bind(8, letter.reason);
  insert.bind(9, letter.died);
  insert.exec();
}

void QueueStore::importDead(const std::vector<BuriedMessage>& letters) {
  database_->write(true, [&] {
    for (const BuriedMessage& letter : letters) insertLetter(letter);
  });
}

std::vector<BuriedMessage> QueueStore::deadLetters() {
  return database_->read([&] {
    std::vector<BuriedMessage> letters;
    SQLite::Statement rows(database_->connection,
                           std::string("SELECT ") + deadColumns + " FROM dead ORDER BY place");
    while (rows.executeStep()) letters.push_back(deadLetterIn(rows));
    return letters;
  });
}

QueueChange QueueStore::revive(const std::optional<std::vector<std::string>>& ids) {
  Database& database = *database_;
  std::int64_t last = database.last;
  QueueChange change;
  database.write(true, [&] {
    SQLite::Statement copy(database.connection,
                           "INSERT INTO messages(sequence, id, module, body, accepted, run, "
                           "ordinal) SELECT ?, id, module, body, accepted, 0, 0 FROM dead WHERE "
                           "place = ?");
    SQLite::Statement erase(database.connection, "DELETE FROM dead WHERE place = ?");
    change = database.forDead(ids, [&](std::int64_t place) {
      const StatementUse use(copy);
      copy.bind(1, ++last);
      copy.bind(2, place);
      copy.exec();
      database.run(erase, place);
    });
  });
  database.last = last;
  change.deadLetters = -change.deadLetters;
  return change;
}

QueueChange QueueStore::purge(const std::optional<std::vector<std::string>>& ids) {
  QueueChange change;
  database_->write(true, [&] {
    SQLite::Statement erase(database_->connection, "DELETE FROM dead WHERE place = ?");
    change = database_->forDead(ids, [&](std::int64_t place) { database_->run(erase, place); });
  });
  return {0, 0, -change.deadLetters};
}

}  // namespace vantamo::core

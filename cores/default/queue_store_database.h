#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <unordered_set>
#include <utility>

#include "cores/default/queue_store.h"
#include "cores/default/sqlite_access.h"

namespace vantamo::core {

// The connection of a QueueStore, its transactions and its statements.

struct QueueStore::Database {
  explicit Database(SQLite::Database opened) : connection(std::move(opened)) {
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

// The columns of a message, in the order of messageColumns, but for its place.
inline void bindMessage(SQLite::Statement& statement, const Message& message) {
  statement.bind(1, message.id);
  statement.bind(2, message.moduleName);
  statement.bindNoCopy(3, message.body.data(), static_cast<int>(message.body.size()));
  statement.bind(4, message.accepted);
  statement.bind(5, static_cast<std::int64_t>(message.run));
  statement.bind(6, static_cast<std::int64_t>(message.ordinal));
}

}  // namespace vantamo::core

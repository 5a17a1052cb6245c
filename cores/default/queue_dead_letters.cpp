// The dead letters of a QueueStore.

#include "cores/default/queue_store_database.h"

namespace vantamo::core {

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

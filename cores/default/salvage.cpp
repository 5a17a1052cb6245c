#include <sqlite3.h>

#include <algorithm>
#include <unordered_set>

#include "cores/default/sqlite_access.h"

namespace vantamo::core {
namespace {

bool isSound(const Message& message) {
  return isMessageId(message.id) && message.body.size() <= largestMessage &&
         message.moduleName.size() <= 100;
}

// Adds the rows that `query` gives until one cannot be read; whether all could.
template <class Row, class ReadRow>
bool collect(SQLite::Database& database, const std::string& query, std::vector<Row>& rows,
             std::unordered_set<std::string>& seen, ReadRow readRow) {
  try {
    SQLite::Statement statement(database, query);
    while (statement.executeStep()) {
      Row row = readRow(statement);
      if (isSound(row) && seen.insert(row.id).second) rows.push_back(std::move(row));
    }
    return true;
  } catch (const SQLite::Exception&) {
    return false;
  }
}

// Reads from both ends, so that one bad page costs no more than what it holds.
template <class Row, class ReadRow>
bool collectFromBothEnds(SQLite::Database& database, const std::string& query,
                         const std::string& order, std::vector<Row>& rows,
                         std::unordered_set<std::string>& seen, ReadRow readRow) {
  if (collect(database, query + order, rows, seen, readRow)) return true;
  const auto first = static_cast<std::ptrdiff_t>(rows.size());
  collect(database, query + order + " DESC", rows, seen, readRow);
  std::reverse(rows.begin() + first, rows.end());
  return false;
}

// A file that was cut short is refused whole otherwise, and so is one with a bad entry in its
// schema.
void readDespiteDamage(SQLite::Database& database) {
  sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr);
  sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_WRITABLE_SCHEMA, 1, nullptr);
}

// Whether all rows could be read.
bool salvageFrom(const std::string& address, int flags, Salvage& salvaged,
                 std::unordered_set<std::string>& seen) {
  try {
    SQLite::Database database(address, flags);
    distrustSchema(database);
    readDespiteDamage(database);
    // The file is evidence: nothing is moved into it from its log.
    sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    database.exec("PRAGMA locking_mode=EXCLUSIVE; PRAGMA query_only=ON");
    const bool allMessages =
        collectFromBothEnds(database, std::string("SELECT ") + messageColumns + " FROM messages",
                            " ORDER BY sequence", salvaged.messages, seen, &messageIn);
    const bool allLetters =
        collectFromBothEnds(database, std::string("SELECT ") + deadColumns + " FROM dead",
                            " ORDER BY place", salvaged.deadLetters, seen, &deadLetterIn);
    return allMessages && allLetters;
  } catch (const SQLite::Exception&) {
    return false;
  }
}

// A path as part of a URI.
std::string escaped(const std::string& path) {
  constexpr std::string_view special = "%?# ";
  constexpr std::string_view digits = "0123456789abcdef";
  std::string result;
  for (const char c : path) {
    if (special.find(c) == std::string_view::npos) {
      result += c;
    } else {
      const auto code = static_cast<unsigned char>(c);
      result.append({'%', digits[code >> 4U], digits[code & 0xfU]});
    }
  }
  return result;
}

}  // namespace

Salvage salvage(const std::string& path) {
  Salvage salvaged;
  std::unordered_set<std::string> seen;
  if (salvageFrom(path, SQLite::OPEN_READWRITE, salvaged, seen)) return salvaged;
  // Once more without the log beside it, should that be what is damaged.
  salvageFrom("file:" + escaped(path) + "?immutable=1", SQLite::OPEN_READONLY | SQLite::OPEN_URI,
              salvaged, seen);
  std::ranges::stable_sort(salvaged.messages, {}, &QueuedMessage::sequence);
  return salvaged;
}

}  // namespace vantamo::core

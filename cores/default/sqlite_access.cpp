#include "cores/default/sqlite_access.h"

#include <sqlite3.h>

namespace vantamo::core {
namespace {

void fillMessage(SQLite::Statement& row, Message& message) {
  message.id = row.getColumn(0).getString();
  message.moduleName = row.getColumn(1).getString();
  message.body = row.getColumn(2).getString();
  message.accepted = row.getColumn(3).getInt64();
  message.run = static_cast<std::uint64_t>(row.getColumn(4).getInt64());
  message.ordinal = static_cast<std::uint64_t>(row.getColumn(5).getInt64());
}

}  // namespace

void distrustSchema(SQLite::Database& database) {
  sqlite3* handle = database.getHandle();
  sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
}

bool isDamage(const SQLite::Exception& error) noexcept {
  const int code = error.getErrorCode() & 0xff;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB ||
         error.getExtendedErrorCode() == SQLITE_IOERR_SHORT_READ;
}

StatementUse::~StatementUse() {
  statement_.tryReset();
  try {
    statement_.clearBindings();
  } catch (const std::exception&) {  // a statement that cannot be cleared is bound anew anyway
    return;
  }
}

QueuedMessage messageIn(SQLite::Statement& row) {
  QueuedMessage message;
  fillMessage(row, message);
  message.sequence = row.getColumn(6).getInt64();
  return message;
}

BuriedMessage deadLetterIn(SQLite::Statement& row) {
  BuriedMessage letter;
  fillMessage(row, letter);
  letter.status = row.getColumn(6).getInt();
  letter.reason = row.getColumn(7).getString();
  letter.died = row.getColumn(8).getInt64();
  return letter;
}

bool isMessageId(std::string_view id) {
  return id.size() == 36 && id.find_first_not_of("0123456789abcdef-") == std::string_view::npos;
}

}  // namespace vantamo::core

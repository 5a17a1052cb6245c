#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <string>

#include "cores/default/queue_store.h"

namespace vantamo::core {

// What the store and the salvage share of the database library.

/// Sets a fresh connection up so that nothing that the file brings along is run: no triggers, no
/// views, no functions of its schema.
void distrustSchema(SQLite::Database& database);

/// Whether the error says that the file itself is bad.
[[nodiscard]] bool isDamage(const SQLite::Exception& error) noexcept;

/// Leaves a statement ready for its next use, whatever happens meanwhile.
class StatementUse {
 public:
  explicit StatementUse(SQLite::Statement& statement) : statement_(statement) {}
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;
  ~StatementUse();

 private:
  SQLite::Statement& statement_;
};

// Columns in the order of these lists.
inline constexpr const char* messageColumns = "id, module, body, accepted, run, ordinal, sequence";
inline constexpr const char* deadColumns =
    "id, module, body, accepted, run, ordinal, status, reason, died";

[[nodiscard]] QueuedMessage messageIn(SQLite::Statement& row);
[[nodiscard]] BuriedMessage deadLetterIn(SQLite::Statement& row);

}  // namespace vantamo::core

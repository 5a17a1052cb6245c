#include <SQLiteCpp/SQLiteCpp.h>
#include <fcntl.h>

#include <atomic>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "cores/default/message_queue.h"
#include "platform/file.h"
#include "platform/linux/unique_fd.h"
#include "platform/mutex.h"

namespace vantamo::core {
namespace {

constexpr int busyMilliseconds = 5000;
constexpr std::size_t largestBody = 500'000'000;  // what the database takes in any build of it

std::string fileIn(const std::string& folder) { return folder + "/queue.sqlite"; }

// The file is made here and not by the database, so that it is this user's only from the first
// moment; the files beside it take over its mode.
std::string preparedFile(const std::string& folder) {
  platform::createDirectories(folder);
  std::string path = fileIn(folder);
  const platform::UniqueFd file(
      ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!file) throw std::system_error(errno, std::generic_category(), path);
  return path;
}

// One connection with its prepared statements; used under one mutex.
struct Connection {
  explicit Connection(const std::string& path)
      : database(path, SQLite::OPEN_READWRITE, busyMilliseconds) {
    // A committed row survives the process's end in any way; the disk is waited for only when the
    // log is moved into the file and begun anew, which tidy() does.
    database.exec(
        "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=0;"
        "PRAGMA journal_size_limit=1048576;");
    database.exec(
        "CREATE TABLE IF NOT EXISTS messages("
        "sequence INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT NOT NULL, module TEXT NOT NULL, "
        "body BLOB NOT NULL);"
        "CREATE TABLE IF NOT EXISTS tidied(once INTEGER PRIMARY KEY CHECK (once = 1), count "
        "INTEGER)");
  }

  SQLite::Database database;
};

// Leaves a statement ready for its next use, whatever happens meanwhile.
class StatementUse {
 public:
  explicit StatementUse(SQLite::Statement& statement) : statement_(statement) {}
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;
  ~StatementUse() {
    statement_.tryReset();
    try {
      statement_.clearBindings();
    } catch (const std::exception&) {  // a statement that cannot be cleared is bound anew anyway
      return;
    }
  }

 private:
  SQLite::Statement& statement_;
};

// Whoever appends has a connection of its own, so that it never waits for the one that sends to
// give a lock back; the database sees to the two writers.
class SqliteQueue final : public MessageQueue {
 public:
  explicit SqliteQueue(const std::string& path) : appending_(path), sending_(path) {
    newest_ =
        appending_.database
            .execAndGet("SELECT IFNULL(MAX(seq), 0) FROM sqlite_sequence WHERE name='messages'")
            .getInt64();
  }

  void append(std::string_view id, std::string_view moduleName, std::string_view body) override {
    if (body.size() > largestBody) throw std::length_error("the message is too large to keep");
    const platform::MutexLock lock(appendingMutex_);
    const StatementUse use(insert_);
    insert_.bind(1, std::string(id));
    insert_.bind(2, std::string(moduleName));
    insert_.bindNoCopy(3, body.data(), static_cast<int>(body.size()));
    insert_.exec();
    newest_ = appending_.database.getLastInsertRowid();
    ++changes_;
  }

  std::optional<QueuedMessage> front() override {
    const platform::MutexLock lock(sendingMutex_);
    const StatementUse use(selectFront_);
    if (!selectFront_.executeStep()) return {};
    const SQLite::Column body = selectFront_.getColumn(3);
    return QueuedMessage{
        selectFront_.getColumn(0).getInt64(),
        selectFront_.getColumn(1).getString(),
        selectFront_.getColumn(2).getString(),
        {static_cast<const char*>(body.getBlob()), static_cast<std::size_t>(body.getBytes())}};
  }

  void remove(std::int64_t sequence) override {
    const platform::MutexLock lock(sendingMutex_);
    const StatementUse use(delete_);
    delete_.bind(1, sequence);
    delete_.exec();
    ++changes_;
  }

  std::size_t size() override {
    const platform::MutexLock lock(sendingMutex_);
    const auto count = sending_.database.execAndGet("SELECT COUNT(*) FROM messages").getInt64();
    return static_cast<std::size_t>(count);
  }

  std::int64_t newestSequence() override { return newest_; }

  // Moves the log into the file, so that it cannot grow without bound while nothing is delivered.
  // The write after it begins the log anew and waits for the disk: here, and not in a host's
  // append.
  void tidy() noexcept override {
    const int changes = changes_;
    const bool quiet = std::exchange(changesSeen_, changes) == changes;
    if (changes < changesPerTidy && !(unmoved_ && quiet)) return;
    changes_ = changesSeen_ = 0;
    try {
      const platform::MutexLock lock(sendingMutex_);
      SQLite::Statement checkpoint(sending_.database, "PRAGMA wal_checkpoint(PASSIVE)");
      // Appends that come in between keep the log from being moved whole: again when it is quiet.
      unmoved_ = !checkpoint.executeStep() ||
                 checkpoint.getColumn(1).getInt() != checkpoint.getColumn(2).getInt();
      checkpoint.reset();
      if (unmoved_) return;
      sending_.database.exec(
          "INSERT INTO tidied VALUES(1, 1) ON CONFLICT DO UPDATE SET count = count + 1");
    } catch (const std::exception&) {
      return;
    }
  }

 private:
  static constexpr int changesPerTidy = 500;

  std::atomic<std::int64_t> newest_{0};
  std::atomic<int> changes_{changesPerTidy};  // an earlier run may have left a long log
  int changesSeen_ = 0;                       // by the last tidy(), as is the next
  bool unmoved_ = false;

  platform::Mutex appendingMutex_;
  Connection appending_ VANTAMO_GUARDED_BY(appendingMutex_);
  SQLite::Statement insert_ VANTAMO_GUARDED_BY(appendingMutex_){
      appending_.database, "INSERT INTO messages(id, module, body) VALUES(?, ?, ?)"};

  platform::Mutex sendingMutex_;
  Connection sending_ VANTAMO_GUARDED_BY(sendingMutex_);
  SQLite::Statement selectFront_ VANTAMO_GUARDED_BY(sendingMutex_){
      sending_.database,
      "SELECT sequence, id, module, body FROM messages ORDER BY sequence LIMIT 1"};
  SQLite::Statement delete_ VANTAMO_GUARDED_BY(sendingMutex_){
      sending_.database, "DELETE FROM messages WHERE sequence = ?"};
};

}  // namespace

bool queueExists(const std::string& folder) { return platform::exists(fileIn(folder)); }

std::unique_ptr<MessageQueue> openSqliteQueue(const std::string& folder) {
  return std::make_unique<SqliteQueue>(preparedFile(folder));
}

}  // namespace vantamo::core

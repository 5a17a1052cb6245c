#include "tools/queue_command.h"

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <set>
#include <stdexcept>

#include "cores/default/queue_slot.h"
#include "cores/default/spool.h"
#include "support/json.h"
#include "tools/plain_text.h"

namespace vantamo::tools {
namespace {

namespace fs = std::filesystem;

using core::BuriedMessage;
using core::QueuedMessage;
using core::QueueSlot;
using core::QueueStore;
using core::Spool;

bool isSlot(const fs::path& path) {
  std::error_code error;
  return QueueSlot::isName(path.filename()) && (fs::exists(path / QueueSlot::lockName, error) ||
                                                fs::exists(path / QueueStore::fileName, error));
}

// Found out without opening anything: to open a folder is to make it and what is missing in it.
std::string queueFolder(const std::string& given) {
  std::error_code error;
  const fs::path path = fs::canonical(given, error);
  if (error || !fs::is_directory(path, error)) throw std::runtime_error(given + ": not a folder");
  const fs::directory_iterator entries(path, error);
  if (error) throw std::runtime_error(given + ": " + error.message());
  if (std::none_of(begin(entries), end(entries), &isSlot)) {
    throw std::runtime_error(given +
                             ": not an application's queue folder: no numbered folder with a queue "
                             "is in it");
  }
  return path.string();
}

Value size(const core::Message& message) { return static_cast<std::int64_t>(message.body.size()); }

class QueueCommand {
 public:
  QueueCommand(QueueAction action, const QueueOptions& options, std::ostream& lines,
               std::ostream& diagnostics)
      : action_(action),
        options_(options),
        lines_(lines),
        diagnostics_(diagnostics),
        missing_(options.ids.begin(), options.ids.end()) {}

  int run() {
    const auto application = platform::PrivateFolder::at(queueFolder(options_.folder));
    for (const std::string& name : QueueSlot::namesIn(application)) {
      const std::string path = application.pathOf(name);
      if (!isSlot(path)) continue;
      try {
        if (const auto slot = QueueSlot::tryAcquire(application, name)) {
          visit(*slot);
        } else {
          busy_ = true;
          complain(path + ": belongs to a running process");
        }
      } catch (const std::exception& exception) {
        failed_ = true;
        complain(path + ": " + exception.what());
      }
    }
    for (const std::string& id : missing_) complain("no dead letter " + id);
    if (failed_) return 1;
    if (busy_) return 3;
    return missing_.empty() ? 0 : 1;
  }

 private:
  void visit(const QueueSlot& slot) {
    if (action_ == QueueAction::erase) {
      if (!slot.erase()) throw std::runtime_error("not all of it could be erased");
      return print({{"erased", slot.folder().path()}});
    }
    if (!Spool::holdsMessages(slot.folder())) return;
    Spool spool(slot.folder(), {});
    switch (action_) {
      case QueueAction::list: return list(spool.store());
      case QueueAction::dead: return listDead(spool.store());
      default: return change(spool.store());
    }
  }

  void list(QueueStore& store) {
    constexpr std::size_t count = 64;
    constexpr std::size_t bytes = 256UL * 1024;
    std::int64_t shown = 0;
    for (auto batch = store.after(shown, count, bytes); !batch.empty();
         batch = store.after(shown, count, bytes)) {
      for (const QueuedMessage& message : batch) {
        printMessage({{"id", message.id},
                      {"accepted", isoTime(message.accepted)},
                      {"bytes", size(message)},
                      {"module", message.moduleName}},
                     message);
      }
      shown = batch.back().sequence;
    }
  }

  void listDead(QueueStore& store) {
    for (const BuriedMessage& letter : store.deadLetters()) {
      printMessage({{"id", letter.id},
                    {"status", letter.status},
                    {"reason", letter.reason},
                    {"accepted", isoTime(letter.accepted)},
                    {"died", isoTime(letter.died)},
                    {"bytes", size(letter)},
                    {"module", letter.moduleName}},
                   letter);
    }
  }

  void change(QueueStore& store) {
    std::vector<std::string> concerned;
    for (const BuriedMessage& letter : store.deadLetters()) {
      if (options_.ids.empty() || std::ranges::count(options_.ids, letter.id) > 0) {
        concerned.push_back(letter.id);
      }
    }
    if (action_ == QueueAction::replay) {
      store.revive(concerned);
    } else {
      store.purge(concerned);
    }
    for (const std::string& id : concerned) {
      missing_.erase(id);
      print({{"id", id}});
    }
  }

  void printMessage(Value::Map row, const core::Message& message) {
    if (options_.bodies) row.set("body", message.body);
    print(row);
  }

  void print(const Value::Map& row) {
    if (options_.json) {
      lines_ << support::writeJson(row) << '\n';
      return;
    }
    const char* separator = "";
    for (const auto& [name, value] : row) {
      const std::string* text = value.ifString();
      lines_ << separator << (text != nullptr ? printable(*text) : support::writeJson(value));
      separator = "\t";
    }
    lines_ << '\n';
  }

  void complain(const std::string& text) { diagnostics_ << "vantamo: " << printable(text) << '\n'; }

  const QueueAction action_;
  const QueueOptions& options_;
  std::ostream& lines_;
  std::ostream& diagnostics_;
  std::set<std::string> missing_;  // wanted, and not found so far
  bool busy_ = false;
  bool failed_ = false;
};

}  // namespace

int runOnQueue(QueueAction action, const QueueOptions& options, std::ostream& lines,
               std::ostream& diagnostics) {
  if (action == QueueAction::erase && !options.confirmed) {
    throw std::runtime_error("this erases every message and dead letter in " + options.folder +
                             "; say --yes to do it");
  }
  return QueueCommand(action, options, lines, diagnostics).run();
}

}  // namespace vantamo::tools

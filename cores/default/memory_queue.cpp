#include <algorithm>
#include <deque>

#include "cores/default/message_queue.h"
#include "platform/mutex.h"

namespace vantamo::core {
namespace {

bool isWanted(const std::optional<std::vector<std::string>>& ids, const std::string& id) {
  return !ids || std::ranges::find(*ids, id) != ids->end();
}

class MemoryQueue final : public MessageQueue {
 public:
  void append(const Message& message) override {
    const platform::MutexLock lock(mutex_);
    add(message);
    messages_.back().ordinal = ++ordinal_;
  }

  [[nodiscard]] std::uint64_t newestOrdinal() const noexcept override {
    const platform::MutexLock lock(mutex_);
    return ordinal_;
  }
  [[nodiscard]] std::uint64_t run() const noexcept override { return 1; }
  [[nodiscard]] bool durable() const noexcept override { return false; }
  QueueChange takeIn() override { return {}; }

  const QueuedMessage* front() override {
    const platform::MutexLock lock(mutex_);
    if (messages_.empty()) return nullptr;
    front_ = messages_.front();
    return &front_;
  }

  void delivered() override {
    const platform::MutexLock lock(mutex_);
    messages_.pop_front();
  }

  std::size_t bury(int status, std::string_view reason, std::int64_t now,
                   const DeadLetterBounds& bounds) override {
    const platform::MutexLock lock(mutex_);
    dead_.push_back({messages_.front(), status, std::string(reason), now});
    messages_.pop_front();
    std::size_t kept = 0;
    std::size_t bytes = 0;
    while (kept < dead_.size() && kept < bounds.messages) {
      bytes += dead_[dead_.size() - kept - 1].body.size();
      if (bytes > bounds.bytes) break;
      ++kept;
    }
    const std::size_t dropped = dead_.size() - kept;
    dead_.erase(dead_.begin(), dead_.begin() + static_cast<std::ptrdiff_t>(dropped));
    return dropped;
  }

  void settle() override {}
  void secure() override {}

  std::vector<BuriedMessage> deadLetters() override {
    const platform::MutexLock lock(mutex_);
    return dead_;
  }

  QueueChange revive(const std::optional<std::vector<std::string>>& ids) override {
    const platform::MutexLock lock(mutex_);
    QueueChange change;
    for (const BuriedMessage& letter : dead_) {
      if (!isWanted(ids, letter.id)) continue;
      add(letter);
      ++change.messages;
      change.bytes += static_cast<std::int64_t>(letter.body.size());
    }
    change.deadLetters = -forget(ids);
    return change;
  }

  QueueChange purge(const std::optional<std::vector<std::string>>& ids) override {
    const platform::MutexLock lock(mutex_);
    return {0, 0, -forget(ids)};
  }

  bool erase(QueueChange& change) override {
    const platform::MutexLock lock(mutex_);
    change = {-static_cast<std::int64_t>(messages_.size()), 0,
              -static_cast<std::int64_t>(dead_.size())};
    for (const QueuedMessage& message : messages_) {
      change.bytes -= static_cast<std::int64_t>(message.body.size());
    }
    messages_.clear();
    dead_.clear();
    return true;
  }

  void rest() noexcept override {}

 private:
  void add(const Message& message) VANTAMO_REQUIRES(mutex_) {
    messages_.push_back({message, ++sequence_});
    messages_.back().run = message.run == 0 ? run() : 0;
  }
  std::int64_t forget(const std::optional<std::vector<std::string>>& ids) VANTAMO_REQUIRES(mutex_) {
    return static_cast<std::int64_t>(std::erase_if(
        dead_, [&](const BuriedMessage& letter) { return isWanted(ids, letter.id); }));
  }

  mutable platform::Mutex mutex_;
  std::int64_t sequence_ VANTAMO_GUARDED_BY(mutex_) = 0;
  std::uint64_t ordinal_ VANTAMO_GUARDED_BY(mutex_) = 0;
  std::deque<QueuedMessage> messages_ VANTAMO_GUARDED_BY(mutex_);
  std::vector<BuriedMessage> dead_ VANTAMO_GUARDED_BY(mutex_);
  QueuedMessage front_;  // the sending thread's alone
};

}  // namespace

std::unique_ptr<MessageQueue> makeMemoryQueue() { return std::make_unique<MemoryQueue>(); }

}  // namespace vantamo::core

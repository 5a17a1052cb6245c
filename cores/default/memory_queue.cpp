#include <algorithm>
#include <deque>
#include <stdexcept>

#include "cores/default/message_queue.h"
#include "platform/mutex.h"

namespace vantamo::core {
namespace {

bool isWanted(const std::optional<std::vector<std::string>>& ids, const std::string& id) {
  return !ids || std::ranges::find(*ids, id) != ids->end();
}

class MemoryQueue final : public MessageQueue {
 public:
  void append(const MessageView& message) override {
    const platform::MutexLock lock(mutex_);
    add({std::string(message.id), std::string(message.moduleName), std::string(message.body),
         message.accepted, 0, 0});
    messages_.back().ordinal = ++ordinal_;
  }

  [[nodiscard]] std::uint64_t newestOrdinal() const noexcept override {
    const platform::MutexLock lock(mutex_);
    return ordinal_;
  }
  [[nodiscard]] std::uint64_t run() const noexcept override { return 1; }
  [[nodiscard]] bool durable() const noexcept override { return false; }
  QueueChange takeIn() override { return {}; }

  const QueuedMessage* at(std::size_t place) override {
    const platform::MutexLock lock(mutex_);
    if (place >= messages_.size()) return nullptr;
    answered_ = messages_[place];
    return &answered_;
  }

  void delivered(const std::string& id) override {
    const platform::MutexLock lock(mutex_);
    messages_.erase(find(id));
  }

  std::size_t bury(const std::string& id, int status, std::string_view reason, std::int64_t now,
                   const DeadLetterBounds& bounds) override {
    const platform::MutexLock lock(mutex_);
    const auto message = find(id);
    const Message& buried = *message;
    dead_.push_back({buried, status, std::string(reason), now});
    messages_.erase(message);
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
  // Throws when it is not there.
  [[nodiscard]] std::deque<QueuedMessage>::iterator find(const std::string& id)
      VANTAMO_REQUIRES(mutex_) {
    const auto message = std::ranges::find(messages_, id, &QueuedMessage::id);
    if (message == messages_.end()) throw std::out_of_range("a message that was erased meanwhile");
    return message;
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
  QueuedMessage answered_;  // the sending thread's alone
};

}  // namespace

std::unique_ptr<MessageQueue> makeMemoryQueue() { return std::make_unique<MemoryQueue>(); }

}  // namespace vantamo::core

#include <deque>

#include "cores/default/message_queue.h"
#include "platform/mutex.h"

namespace vantamo::core {
namespace {

class MemoryQueue final : public MessageQueue {
 public:
  void append(std::string_view id, std::string_view moduleName, std::string_view body) override {
    const platform::MutexLock lock(mutex_);
    messages_.push_back({++sequence_, std::string(id), std::string(moduleName), std::string(body)});
  }

  std::optional<QueuedMessage> front() override {
    const platform::MutexLock lock(mutex_);
    return messages_.empty() ? std::nullopt : std::optional(messages_.front());
  }

  void remove(std::int64_t sequence) override {
    const platform::MutexLock lock(mutex_);
    std::erase_if(messages_, [sequence](const auto& kept) { return kept.sequence == sequence; });
  }

  std::size_t size() override {
    const platform::MutexLock lock(mutex_);
    return messages_.size();
  }

  std::int64_t newestSequence() override {
    const platform::MutexLock lock(mutex_);
    return sequence_;
  }

 private:
  platform::Mutex mutex_;
  std::int64_t sequence_ VANTAMO_GUARDED_BY(mutex_) = 0;
  std::deque<QueuedMessage> messages_ VANTAMO_GUARDED_BY(mutex_);
};

}  // namespace

std::unique_ptr<MessageQueue> makeMemoryQueue() { return std::make_unique<MemoryQueue>(); }

}  // namespace vantamo::core

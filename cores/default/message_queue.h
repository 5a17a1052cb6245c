#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vantamo::core {

/// One accepted message. `body` holds the final bytes, made once when the message was accepted.
struct QueuedMessage {
  /// Grows with every message and is never used again.
  std::int64_t sequence = 0;
  /// Random; the same at every attempt to deliver.
  std::string id;
  std::string moduleName;
  std::string body;
};

/// Keeps accepted messages in order of arrival until they are delivered. Safe from any thread.
/// Every operation but tidy() throws std::exception when the storage fails; a message that append()
/// has taken is kept. append() and newestSequence() never wait for one of the others.
class MessageQueue {
 public:
  MessageQueue() = default;
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;
  virtual ~MessageQueue() = default;

  virtual void append(std::string_view id, std::string_view moduleName, std::string_view body) = 0;
  /// The oldest message, or nothing.
  [[nodiscard]] virtual std::optional<QueuedMessage> front() = 0;
  /// Removes a delivered message.
  virtual void remove(std::int64_t sequence) = 0;
  [[nodiscard]] virtual std::size_t size() = 0;
  /// The sequence of the message that was appended last, or an upper bound of those kept from
  /// earlier runs; 0 when there never was one.
  [[nodiscard]] virtual std::int64_t newestSequence() = 0;
  /// Does what the storage needs from time to time, which may wait for the disk; a failure is left
  /// for the next time. For the sending thread.
  virtual void tidy() noexcept {}
};

/// A queue file in `folder`, which is created when missing, both for this user only. Throws when
/// the file cannot be used.
[[nodiscard]] std::unique_ptr<MessageQueue> openSqliteQueue(const std::string& folder);

/// Whether a queue file stands in `folder`.
[[nodiscard]] bool queueExists(const std::string& folder);

/// Keeps messages for the life of the process only.
[[nodiscard]] std::unique_ptr<MessageQueue> makeMemoryQueue();

}  // namespace vantamo::core

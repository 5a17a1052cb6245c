#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantamo::core {

/// The largest message that is taken, in bytes.
inline constexpr std::size_t largestMessage = 1024UL * 1024;

/// One accepted message. `body` holds the final bytes, made once when the message was accepted.
struct Message {
  /// A random UUID; the same at every attempt to deliver.
  std::string id;
  std::string moduleName;
  std::string body;
  /// Milliseconds of the wall clock.
  std::int64_t accepted = 0;
  /// The queue's run that has accepted the message, and the message's number in it, from 1.
  std::uint64_t run = 0;
  std::uint64_t ordinal = 0;
};

/// A message on its way into the queue, which has neither run nor ordinal yet.
struct MessageView {
  std::string_view id;
  std::string_view moduleName;
  std::string_view body;
  std::int64_t accepted = 0;

  MessageView(std::string_view messageId, std::string_view module, std::string_view bytes,
              std::int64_t time)
      : id(messageId), moduleName(module), body(bytes), accepted(time) {}
  MessageView(const Message& message)
      : MessageView(message.id, message.moduleName, message.body, message.accepted) {}
};

struct QueuedMessage : Message {
  /// Its place: later messages have larger ones.
  std::int64_t sequence = 0;
};

struct BuriedMessage : Message {
  int status = 0;
  std::string reason;
  std::int64_t died = 0;
};

/// What is kept.
struct QueueSize {
  std::size_t messages = 0;
  std::size_t bytes = 0;
  std::size_t deadLetters = 0;
};

/// The most that is kept of dead letters; beyond it the oldest go.
struct DeadLetterBounds {
  std::size_t messages = 1000;
  std::size_t bytes = 20UL * 1024 * 1024;
};

/// A difference of what is kept.
struct QueueChange {
  std::int64_t messages = 0;
  std::int64_t bytes = 0;
  std::int64_t deadLetters = 0;

  QueueChange& operator+=(const QueueChange& other) {
    messages += other.messages;
    bytes += other.bytes;
    deadLetters += other.deadLetters;
    return *this;
  }
};

/// Keeps accepted messages in order of arrival until they are delivered or dead.
///
/// append() and what follows it, up to the next heading, are safe from any thread and never wait
/// for one of the others; the rest is for the sending thread alone. Every operation that is not
/// noexcept throws std::exception when the storage fails; nothing that was appended is lost by
/// that.
class MessageQueue {
 public:
  MessageQueue() = default;
  MessageQueue(const MessageQueue&) = delete;
  MessageQueue& operator=(const MessageQueue&) = delete;
  virtual ~MessageQueue() = default;

  /// Takes a message over: when it returns, the message survives the end of the process by any
  /// cause, as far as the queue is durable. Its run and ordinal are given here.
  virtual void append(const MessageView& message) = 0;
  /// The number of the message that this run has appended last; 0 when there is none.
  [[nodiscard]] virtual std::uint64_t newestOrdinal() const noexcept = 0;
  [[nodiscard]] virtual std::uint64_t run() const noexcept = 0;
  [[nodiscard]] virtual bool durable() const noexcept = 0;

  // The sending thread.

  /// Moves what was appended to where at() finds it, and sees to the storage. What has come or
  /// gone otherwise than by the operations here: left by earlier runs and other processes, or lost
  /// to damage.
  [[nodiscard]] virtual QueueChange takeIn() = 0;
  /// Makes what was appended survive a power cut without moving it, for the time of a long request.
  virtual void secure() = 0;
  /// Of the messages that are not yet delivered or dead, the one that `place` older ones stand
  /// before; null when there is none. The pointer holds until the next call.
  [[nodiscard]] virtual const QueuedMessage* at(std::size_t place) = 0;
  [[nodiscard]] const QueuedMessage* front() { return at(0); }
  /// Notes that a message was delivered: this queue never answers it again, and nor does one of a
  /// later process once at() was called for the next. The storage may be told later, but before
  /// at() goes on beyond what can be noted safely.
  virtual void delivered(const std::string& id) = 0;
  /// Moves a message to the dead letters. How many older ones had to go.
  virtual std::size_t bury(const std::string& id, int status, std::string_view reason,
                           std::int64_t now, const DeadLetterBounds& bounds) = 0;
  /// Tells the storage everything that it was to be told later.
  virtual void settle() = 0;
  [[nodiscard]] virtual std::vector<BuriedMessage> deadLetters() = 0;
  /// Moves dead letters back, behind all messages; of `ids`, or all. What has changed.
  virtual QueueChange revive(const std::optional<std::vector<std::string>>& ids) = 0;
  virtual QueueChange purge(const std::optional<std::vector<std::string>>& ids) = 0;
  /// Erases all there is, dead letters and files set aside included. False when something is left.
  /// `change` is set to what has changed, found things included.
  virtual bool erase(QueueChange& change) = 0;
  /// Lets go of what only the sending thread needs; it is taken up again when needed.
  virtual void rest() noexcept = 0;
};

/// Keeps messages for the life of the process only.
[[nodiscard]] std::unique_ptr<MessageQueue> makeMemoryQueue();

}  // namespace vantamo::core

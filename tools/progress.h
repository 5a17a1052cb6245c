#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace vantamo::tools {

/// The last line of a terminal, on standard error: shown, and taken away before anything else is
/// written there. Safe from any thread.
class TerminalLine {
 public:
  /// Shows `text`, cut to the terminal's width, in place of what was shown.
  void show(std::string_view text);
  void clear();
  /// Writes whole lines to standard error.
  void log(std::string_view lines);
  /// Calls `write` while nothing is shown.
  void writeBy(const std::function<void()>& write);

 private:
  void clearLocked();

  std::mutex mutex_;
  std::string shown_;  // guarded by mutex_
};

/// Shows on standard error how far a script has come, about ten times a second and from half a
/// second on; takes the line away at the end. It has a thread of its own, since what a script waits
/// for does not come back to tell.
class Progress {
 public:
  /// How many messages are left, asked for while a script waits for delivery.
  using MessagesLeft = std::function<std::size_t()>;

  /// `size` is the script's in bytes, where it is known. When not `shown`, nothing is done.
  Progress(bool shown, std::optional<std::uint64_t> size, MessagesLeft messagesLeft);
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// A line of so many bytes was read.
  void advance(std::uint64_t bytes);
  /// From now on, or no longer, the script waits for delivery.
  void setWaiting(bool waiting) { waiting_ = waiting; }
  /// Writes an answer: `write` is called while no line is in its way.
  void writeAnswer(const std::function<void()>& write);

  /// Receives the library's log, line by line with what is shown; may outlive this. Nothing when
  /// not shown.
  [[nodiscard]] std::function<void(std::string_view)> logSink() const;

 private:
  void run();
  [[nodiscard]] std::string text() const;

  const std::optional<std::uint64_t> size_;
  const MessagesLeft messagesLeft_;
  const bool sharesTerminal_;  // with the answers
  std::shared_ptr<TerminalLine> line_;
  std::atomic<std::uint64_t> lines_{0};
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<bool> waiting_{false};

  std::mutex mutex_;
  std::condition_variable wake_;
  bool ended_ = false;  // guarded by mutex_
  std::thread thread_;
};

}  // namespace vantamo::tools

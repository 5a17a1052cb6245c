#include "tools/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "tools/write_all.h"

namespace vantamo::tools {
namespace {

void writeToTerminal(std::string_view text) { writeAll(STDERR_FILENO, text); }

// One less than the terminal has: a full line would go on in the next one.
std::size_t usableColumns() {
  constexpr std::size_t usual = 80;
  winsize size{};
  const bool known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return (known ? size.ws_col : usual) - 1;
}

// A program in the background of a shell does not write into what the user types.
bool isInForeground() { return ::tcgetpgrp(STDERR_FILENO) == ::getpgrp(); }

}  // namespace

void TerminalLine::show(std::string_view text) {
  const std::scoped_lock lock(mutex_);
  std::string next(text.substr(0, usableColumns()));
  if (next == shown_) return;
  writeToTerminal("\r\x1b[K" + next);
  shown_ = std::move(next);
}

void TerminalLine::clear() {
  const std::scoped_lock lock(mutex_);
  clearLocked();
}

void TerminalLine::log(std::string_view lines) {
  const std::scoped_lock lock(mutex_);
  clearLocked();
  writeToTerminal(lines);
}

void TerminalLine::writeBy(const std::function<void()>& write) {
  const std::scoped_lock lock(mutex_);
  clearLocked();
  write();
}

void TerminalLine::clearLocked() {
  if (shown_.empty()) return;
  writeToTerminal("\r\x1b[K");
  shown_.clear();
}

Progress::Progress(bool shown, std::optional<std::uint64_t> size, MessagesLeft messagesLeft)
    : size_(size),
      messagesLeft_(std::move(messagesLeft)),
      sharesTerminal_(::isatty(STDOUT_FILENO) != 0) {
  if (!shown) return;
  line_ = std::make_shared<TerminalLine>();
  thread_ = std::thread([this] { run(); });
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::scoped_lock lock(mutex_);
    ended_ = true;
  }
  wake_.notify_all();
  thread_.join();
  line_->clear();
}

void Progress::advance(std::uint64_t bytes) {
  ++lines_;
  bytes_ += bytes;
}

void Progress::writeAnswer(const std::function<void()>& write) {
  if (line_ && sharesTerminal_) {
    line_->writeBy(write);
  } else {
    write();
  }
}

std::function<void(std::string_view)> Progress::logSink() const {
  if (!line_) return {};
  return [line = line_](std::string_view text) { line->log(text); };
}

void Progress::run() {
  constexpr std::chrono::milliseconds patience(500);
  constexpr std::chrono::milliseconds interval(100);
  std::unique_lock lock(mutex_);
  for (auto wait = patience; !wake_.wait_for(lock, wait, [this] { return ended_; });
       wait = interval) {
    lock.unlock();
    if (isInForeground()) line_->show(text());
    lock.lock();
  }
}

std::string Progress::text() const {
  std::string text = "line " + std::to_string(lines_);
  if (size_ && *size_ > 0) {
    text += ", " + std::to_string(std::min<std::uint64_t>(bytes_ * 100 / *size_, 100)) + " %";
  }
  if (waiting_) {
    const std::size_t left = messagesLeft_();
    text += ", " + std::to_string(left) + (left == 1 ? " message" : " messages") + " to deliver";
  }
  return text;
}

}  // namespace vantamo::tools

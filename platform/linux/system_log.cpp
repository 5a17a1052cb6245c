#include "platform/system_log.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>

#include "platform/overrides.h"

namespace vantamo::platform {
namespace {

// A closed pipe must not end the host: the signal that says so is held back and taken.
class PipeSignalHeld {
 public:
  PipeSignalHeld() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  PipeSignalHeld(const PipeSignalHeld&) = delete;
  PipeSignalHeld& operator=(const PipeSignalHeld&) = delete;
  ~PipeSignalHeld() {
    const timespec now{};
    while (!wasPending_ && sigtimedwait(&pipe_, nullptr, &now) < 0 && errno == EINTR) continue;
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  sigset_t pipe_{};
  sigset_t before_{};
  bool wasPending_ = false;
};

// A reader may be slow for a moment; one that never reads must not hold the host.
bool becomesWritable(int fd) {
  constexpr int patienceMilliseconds = 200;
  pollfd state{fd, POLLOUT, 0};
  return ::poll(&state, 1, patienceMilliseconds) == 1;
}

// One write for one message, so that lines of several threads do not mix; only what is larger than
// a pipe takes without waiting goes in pieces.
void writeToStandardError(std::string_view text) {
  const PipeSignalHeld held;
  while (!text.empty() && becomesWritable(STDERR_FILENO)) {
    const ssize_t written =
        ::write(STDERR_FILENO, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
    if (written < 0 && errno != EINTR) return;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

void systemLog(std::string_view text) noexcept {
  try {
    if (const auto host = overrides(); host->logSink) {
      host->logSink(text);
    } else {
      writeToStandardError(text);
    }
  } catch (...) {  // whatever a host's sink throws must not reach the host's event
    return;
  }
}

}  // namespace vantamo::platform

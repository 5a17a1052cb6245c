#include "platform/system_log.h"

#include <unistd.h>

#include <cerrno>

#include "platform/overrides.h"

namespace vantamo::platform {

void systemLog(std::string_view text) noexcept {
  try {
    if (const auto host = overrides(); host->logSink) {
      host->logSink(text);
      return;
    }
  } catch (...) {  // whatever a host's sink throws must not reach the host's event
    return;
  }
  // One write for one message, so that lines of several threads do not mix; only a write that was
  // cut short goes on.
  while (!text.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace vantamo::platform

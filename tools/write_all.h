#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace vantamo::tools {

/// Writes the whole text, waiting for whoever reads it; gives up where that cannot be.
inline void writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(fd, text.data(), text.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace vantamo::tools

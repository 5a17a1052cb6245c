#include "tools/collect/line_output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace vantamo::tools::collect {
namespace {

// A pipe that says so takes a page at once.
bool isReady() {
  pollfd state{STDOUT_FILENO, POLLOUT, 0};
  return ::poll(&state, 1, 0) == 1;
}

void put(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

void LineOutput::write(std::string_view line) {
  if (isReady()) tellLeftOut();
  if (isReady()) {
    put(line);
  } else {
    ++leftOut_;
  }
}

void LineOutput::end() { tellLeftOut(); }

void LineOutput::tellLeftOut() {
  const std::size_t count = std::exchange(leftOut_, 0);
  if (count == 0) return;
  put(std::to_string(count) + (count == 1 ? " line was" : " lines were") +
      " left out: nobody was reading\n");
}

}  // namespace vantamo::tools::collect

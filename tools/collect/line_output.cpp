#include "tools/collect/line_output.h"

#include <poll.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "tools/write_all.h"

namespace vantamo::tools::collect {
namespace {

// A pipe that says so takes a page at once.
bool isReady() {
  pollfd state{STDOUT_FILENO, POLLOUT, 0};
  return ::poll(&state, 1, 0) == 1;
}

}  // namespace

void LineOutput::write(std::string_view line) {
  if (isReady()) tellLeftOut();
  if (isReady()) {
    writeAll(STDOUT_FILENO, line);
  } else {
    ++leftOut_;
  }
}

void LineOutput::tellLeftOut() {
  const std::size_t count = std::exchange(leftOut_, 0);
  if (count == 0) return;
  writeAll(STDOUT_FILENO, std::to_string(count) + (count == 1 ? " line was" : " lines were") +
                              " left out: nobody was reading\n");
}

}  // namespace vantamo::tools::collect

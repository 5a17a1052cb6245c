#include "tools/terminal.h"

#include <unistd.h>

#include <string_view>

#include "platform/environment.h"

namespace vantamo::tools {
namespace {

using platform::environmentVariable;

// What obeys escape sequences; not a file, a pipe or a plain console.
bool isCapable(int fd) {
  const char* kind = environmentVariable("TERM");
  return ::isatty(fd) != 0 && kind != nullptr && *kind != '\0' && std::string_view(kind) != "dumb";
}

}  // namespace

bool wantsColours() {
  const char* refusal = environmentVariable("NO_COLOR");
  return isCapable(STDOUT_FILENO) && (refusal == nullptr || *refusal == '\0');
}

bool wantsProgress() { return isCapable(STDERR_FILENO); }

}  // namespace vantamo::tools

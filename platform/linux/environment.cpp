#include "platform/environment.h"

#include <sys/auxv.h>

#include <cstdlib>

namespace vantamo::platform {

const char* environmentVariable(const char* name) noexcept { return secure_getenv(name); }

bool isPrivilegedProcess() noexcept { return ::getauxval(AT_SECURE) != 0; }

}  // namespace vantamo::platform

#include "platform/environment.h"

#include <cstdlib>

namespace vantamo::platform {

const char* environmentVariable(const char* name) noexcept { return secure_getenv(name); }

}  // namespace vantamo::platform

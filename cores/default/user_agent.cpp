#include "cores/default/user_agent.h"

#include <sys/utsname.h>

#include <algorithm>

namespace vantamo::core {

std::string defaultUserAgent() {
  std::string agent = "NQCore/1.0";
  utsname system{};
  if (uname(&system) == 0) {
    agent.append(" (").append(system.sysname).append("; ").append(system.machine).append(")");
  }
  std::ranges::replace_if(
      agent, [](char c) { return c < ' ' || c > '~'; }, '?');
  return agent;
}

}  // namespace vantamo::core

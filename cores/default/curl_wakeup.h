#pragma once

namespace vantamo::core {

/// A multi handle whose own pair of sockets is not inherited by the programs that the host runs.
/// (libcurl makes them inheritable, and does not tell which they are.) Null when there is none.
[[nodiscard]] void* makeMultiHandle();

}  // namespace vantamo::core

#pragma once

namespace vantamo::core {

/// A multi handle whose own pair of sockets is not inherited by the programs that the host runs.
/// (libcurl makes them inheritable, and does not tell which they are.) Null when there is none.
[[nodiscard]] void* makeMultiHandle();
/// The same for the pair of sockets that the handle has while it looks up a name. To be called
/// before each wait.
void keepLookUpFromChildren(void* multi);

}  // namespace vantamo::core

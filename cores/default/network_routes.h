#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace vantamo::core {

/// How far a dump of all routes has come with one buffer of its answer.
enum class DumpProgress { more, complete, failed };

/// Reads one buffer of the answer to a dump of all routes, which the request numbered `sequence`
/// asked for. Calls `onInterface` with the index of each interface through which a unicast route
/// leads away from this machine's own links, once a route and hop. Whatever the bytes are, only
/// `messages` is read: a message that is cut short makes the dump fail, an attribute that is
/// counts as missing. `messages` must be aligned as an nlmsghdr is.
DumpProgress forEachRouteInterface(std::span<const std::byte> messages, unsigned sequence,
                                   const std::function<void(unsigned index)>& onInterface);

}  // namespace vantamo::core

#pragma once

#include <sys/socket.h>

#include <optional>
#include <string>
#include <vector>

namespace vantamo::core {

/// A numeric address as the system takes it.
struct NetworkAddress {
  sockaddr_storage storage{};
  socklen_t size = 0;
};

/// True for "localhost", names below it, and addresses of the loopback network.
[[nodiscard]] bool isLoopbackHost(const std::string& host);
/// The address that `host` spells, or nothing when it is a name.
[[nodiscard]] std::optional<NetworkAddress> literalAddress(const std::string& host);

/// What the system knows now about reaching one address, as a status of NQReachability: whether
/// there is a route to it, and whether the interface that has the route's source address runs.
/// Nothing when the system cannot tell for now, for want of descriptors for instance. Sends
/// nothing.
[[nodiscard]] std::optional<long long> statusOfAddress(const NetworkAddress& address);
/// The best status of several addresses; nothing when it hangs on one that the system cannot tell.
[[nodiscard]] std::optional<long long> statusOfAddresses(
    const std::vector<NetworkAddress>& addresses);
/// What the system knows about reaching anything at all: whether a route leaves the machine
/// through a running interface. Nothing as above, or when routes change too fast to be read.
[[nodiscard]] std::optional<long long> statusOfRoutes();

}  // namespace vantamo::core

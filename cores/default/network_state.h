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
/// Sends nothing.
[[nodiscard]] long long statusOfAddress(const NetworkAddress& address);
/// The best status of several addresses.
[[nodiscard]] long long statusOfAddresses(const std::vector<NetworkAddress>& addresses);
/// What the system knows about reaching anything at all: whether a route leaves the machine
/// through a running interface.
[[nodiscard]] long long statusOfRoutes();

}  // namespace vantamo::core

#include "cores/default/network_state.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <span>

#include "cores/default/network_routes.h"
#include "platform/unique_fd.h"
#include "vantamo/nq_core.h"

namespace vantamo::core {
namespace {

using Interfaces = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

Interfaces interfaces() {
  ifaddrs* list = nullptr;
  return {getifaddrs(&list) == 0 ? list : nullptr, &freeifaddrs};
}

bool sameHost(const sockaddr* a, const sockaddr* b) {
  if (a == nullptr || a->sa_family != b->sa_family) return false;
  if (a->sa_family == AF_INET) {
    return reinterpret_cast<const sockaddr_in*>(a)->sin_addr.s_addr ==
           reinterpret_cast<const sockaddr_in*>(b)->sin_addr.s_addr;
  }
  return a->sa_family == AF_INET6 &&
         std::memcmp(&reinterpret_cast<const sockaddr_in6*>(a)->sin6_addr,
                     &reinterpret_cast<const sockaddr_in6*>(b)->sin6_addr, sizeof(in6_addr)) == 0;
}

// Mobile data leaves through interfaces that bear one of these names.
bool isWideArea(std::string_view interface) {
  constexpr std::array<std::string_view, 5> prefixes = {"wwan", "wwp", "rmnet", "ccmni", "ppp"};
  return std::ranges::any_of(
      prefixes, [&](std::string_view prefix) { return interface.starts_with(prefix); });
}

long long statusOfInterface(const char* name, unsigned flags) {
  const bool runs = (flags & IFF_UP) != 0 && (flags & IFF_RUNNING) != 0;
  if (!runs) return NQReachability::notReachable;
  return isWideArea(name) ? NQReachability::reachableViaWWAN : NQReachability::reachableViaWiFi;
}

// A status of 1 is better than one of 2, and both are better than 0.
long long better(long long a, long long b) {
  if (a == NQReachability::notReachable) return b;
  return b == NQReachability::notReachable ? a : std::min(a, b);
}

// Asking for the source address that the kernel would use heeds every kind of routing rule; a
// datagram socket sends nothing when it is connected.
std::optional<NetworkAddress> sourceAddressFor(int socket, const NetworkAddress& destination) {
  const auto* address = reinterpret_cast<const sockaddr*>(&destination.storage);
  if (::connect(socket, address, destination.size) != 0) return {};
  NetworkAddress source;
  source.size = sizeof source.storage;
  auto* target = reinterpret_cast<sockaddr*>(&source.storage);
  if (::getsockname(socket, target, &source.size) != 0) return {};
  return source;
}

long long statusOfInterface(const ifaddrs* list, unsigned index) {
  std::array<char, IF_NAMESIZE> name{};
  if (if_indextoname(index, name.data()) == nullptr) return NQReachability::notReachable;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (std::strcmp(entry->ifa_name, name.data()) != 0) continue;
    if ((entry->ifa_flags & IFF_LOOPBACK) != 0) return NQReachability::notReachable;
    return statusOfInterface(entry->ifa_name, entry->ifa_flags);
  }
  return NQReachability::notReachable;
}

using Socket = std::unique_ptr<mnl_socket, decltype(&mnl_socket_close)>;

// A socket on which a dump of all routes was asked for; none when the system gives none.
Socket askForRoutes(unsigned sequence) {
  Socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), &mnl_socket_close);
  if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) return {nullptr, {}};
  // The kernel answers at once; should it ever not, the caller must not wait for it.
  constexpr timeval longestWait{1, 0};
  ::setsockopt(mnl_socket_get_fd(socket.get()), SOL_SOCKET, SO_RCVTIMEO, &longestWait,
               sizeof longestWait);
  alignas(nlmsghdr) std::array<char, MNL_ALIGN(sizeof(nlmsghdr)) + MNL_ALIGN(sizeof(rtmsg))>
      space{};
  nlmsghdr* request = mnl_nlmsg_put_header(space.data());
  request->nlmsg_type = RTM_GETROUTE;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request->nlmsg_seq = sequence;
  static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)))->rtm_family = AF_UNSPEC;
  if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) return {nullptr, {}};
  return socket;
}

// The status by one dump of all routes; nothing when the dump is not whole.
std::optional<long long> scanRoutes() {
  constexpr unsigned sequence = 1;
  const Socket socket = askForRoutes(sequence);
  const Interfaces list = interfaces();
  if (!socket || !list) return {};
  long long best = NQReachability::notReachable;
  alignas(nlmsghdr) std::array<std::byte, 32768> buffer{};
  DumpProgress progress = DumpProgress::more;
  while (progress == DumpProgress::more) {
    const ssize_t got = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
    if (got <= 0) return {};
    progress = forEachRouteInterface(
        std::span(buffer).first(static_cast<std::size_t>(got)), sequence,
        [&](unsigned index) { best = better(best, statusOfInterface(list.get(), index)); });
  }
  return progress == DumpProgress::complete ? std::optional(best) : std::nullopt;
}

}  // namespace

bool isLoopbackHost(const std::string& host) {
  std::string name = host;
  std::ranges::transform(name, name.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  if (name.ends_with('.')) name.pop_back();
  if (name == "localhost" || name.ends_with(".localhost")) return true;
  const auto address = literalAddress(host);
  if (!address) return false;
  if (address->storage.ss_family == AF_INET6) {
    const auto& ip = reinterpret_cast<const sockaddr_in6&>(address->storage).sin6_addr;
    return IN6_IS_ADDR_LOOPBACK(&ip) || (IN6_IS_ADDR_V4MAPPED(&ip) && ip.s6_addr[12] == 127);
  }
  const auto& ip = reinterpret_cast<const sockaddr_in&>(address->storage).sin_addr;
  return (ntohl(ip.s_addr) >> 24U) == 127;
}

std::optional<NetworkAddress> literalAddress(const std::string& host) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), "80", &hints, &found) != 0) return {};
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  NetworkAddress address;
  address.size = found->ai_addrlen;
  std::memcpy(&address.storage, found->ai_addr, found->ai_addrlen);
  return address;
}

std::optional<long long> statusOfAddress(const NetworkAddress& address) {
  const platform::UniqueFd socket(
      ::socket(address.storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) {
    return errno == EAFNOSUPPORT ? std::optional(NQReachability::notReachable) : std::nullopt;
  }
  const auto source = sourceAddressFor(socket.get(), address);
  if (!source) return NQReachability::notReachable;
  const Interfaces list = interfaces();
  if (!list) return {};
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (sameHost(entry->ifa_addr, reinterpret_cast<const sockaddr*>(&source->storage))) {
      return statusOfInterface(entry->ifa_name, entry->ifa_flags);
    }
  }
  return NQReachability::reachableViaWiFi;  // the kernel has a route; how it leaves is not listed
}

std::optional<long long> statusOfAddresses(const std::vector<NetworkAddress>& addresses) {
  long long best = NQReachability::notReachable;
  bool allKnown = true;
  for (const NetworkAddress& address : addresses) {
    const auto status = statusOfAddress(address);
    allKnown = allKnown && status;
    best = better(best, status.value_or(NQReachability::notReachable));
  }
  // One good way is enough; that there is none is known only when all are known.
  if (best == NQReachability::notReachable && !allKnown) return {};
  return best;
}

std::optional<long long> statusOfRoutes() {
  constexpr int attempts = 3;  // a dump is cut short when routes change under it
  for (int i = 0; i < attempts; ++i) {
    if (const auto status = scanRoutes()) return status;
  }
  return {};
}

}  // namespace vantamo::core

#include "cores/default/network_state.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include "platform/linux/unique_fd.h"
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
std::optional<NetworkAddress> sourceAddressFor(const NetworkAddress& destination) {
  const platform::UniqueFd socket(
      ::socket(destination.storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const auto* address = reinterpret_cast<const sockaddr*>(&destination.storage);
  if (!socket || ::connect(socket.get(), address, destination.size) != 0) return {};
  NetworkAddress source;
  source.size = sizeof source.storage;
  auto* target = reinterpret_cast<sockaddr*>(&source.storage);
  if (::getsockname(socket.get(), target, &source.size) != 0) return {};
  return source;
}

struct RouteScan {
  const ifaddrs* interfaces = nullptr;
  long long best = NQReachability::notReachable;
};

// Link-local and multicast destinations exist on every interface that is up; they lead nowhere.
bool leadsAway(const rtmsg& route, const nlattr* destination) {
  if (destination == nullptr) return true;
  const auto* bytes = static_cast<const unsigned char*>(mnl_attr_get_payload(destination));
  if (route.rtm_family == AF_INET6) {
    return bytes[0] != 0xff && !(bytes[0] == 0xfe && (bytes[1] & 0xc0U) == 0x80U);
  }
  return !(bytes[0] == 169 && bytes[1] == 254) && (bytes[0] & 0xf0U) != 0xe0U;
}

void considerInterface(RouteScan& scan, unsigned index) {
  std::array<char, IF_NAMESIZE> name{};
  if (if_indextoname(index, name.data()) == nullptr) return;
  for (const ifaddrs* entry = scan.interfaces; entry != nullptr; entry = entry->ifa_next) {
    if (std::strcmp(entry->ifa_name, name.data()) != 0) continue;
    if ((entry->ifa_flags & IFF_LOOPBACK) == 0) {
      scan.best = better(scan.best, statusOfInterface(entry->ifa_name, entry->ifa_flags));
    }
    return;
  }
}

int considerRoute(const nlmsghdr* message, void* context) {
  RouteScan& scan = *static_cast<RouteScan*>(context);
  const auto& route = *static_cast<const rtmsg*>(mnl_nlmsg_get_payload(message));
  if (route.rtm_type != RTN_UNICAST || route.rtm_table == RT_TABLE_LOCAL) return MNL_CB_OK;
  std::array<const nlattr*, RTA_MAX + 1> attributes{};
  mnl_attr_parse(
      message, sizeof(rtmsg),
      [](const nlattr* attribute, void* data) {
        const unsigned type = mnl_attr_get_type(attribute);
        if (type <= RTA_MAX) static_cast<const nlattr**>(data)[type] = attribute;
        return static_cast<int>(MNL_CB_OK);
      },
      attributes.data());
  if (!leadsAway(route, attributes[RTA_DST])) return MNL_CB_OK;
  if (attributes[RTA_OIF] != nullptr)
    considerInterface(scan, mnl_attr_get_u32(attributes[RTA_OIF]));
  if (const nlattr* several = attributes[RTA_MULTIPATH]) {
    auto left = static_cast<int>(mnl_attr_get_payload_len(several));
    auto* hop = static_cast<rtnexthop*>(mnl_attr_get_payload(several));
    while (RTNH_OK(hop, left)) {
      considerInterface(scan, static_cast<unsigned>(hop->rtnh_ifindex));
      left -= static_cast<int>(RTNH_ALIGN(hop->rtnh_len));
      hop = RTNH_NEXT(hop);
    }
  }
  return MNL_CB_OK;
}

// The status by one dump of all routes; nothing when the dump is not whole.
std::optional<long long> scanRoutes() {
  const std::unique_ptr<mnl_socket, decltype(&mnl_socket_close)> socket(
      mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC), &mnl_socket_close);
  if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) < 0) return {};
  alignas(nlmsghdr) std::array<char, 32768> buffer{};
  nlmsghdr* request = mnl_nlmsg_put_header(buffer.data());
  request->nlmsg_type = RTM_GETROUTE;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request->nlmsg_seq = 1;
  static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(request, sizeof(rtmsg)))->rtm_family = AF_UNSPEC;
  if (mnl_socket_sendto(socket.get(), request, request->nlmsg_len) < 0) return {};
  const Interfaces list = interfaces();
  RouteScan scan{list.get()};
  const unsigned port = mnl_socket_get_portid(socket.get());
  for (int more = MNL_CB_OK; more > MNL_CB_STOP;) {
    const ssize_t got = mnl_socket_recvfrom(socket.get(), buffer.data(), buffer.size());
    if (got <= 0) return {};
    more = mnl_cb_run(buffer.data(), static_cast<std::size_t>(got), 1, port, &considerRoute, &scan);
    if (more < MNL_CB_STOP) return {};
  }
  return scan.best;
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

long long statusOfAddress(const NetworkAddress& address) {
  const auto source = sourceAddressFor(address);
  if (!source) return NQReachability::notReachable;
  const Interfaces list = interfaces();
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (sameHost(entry->ifa_addr, reinterpret_cast<const sockaddr*>(&source->storage))) {
      return statusOfInterface(entry->ifa_name, entry->ifa_flags);
    }
  }
  return NQReachability::reachableViaWiFi;  // the kernel has a route; how it leaves is not listed
}

long long statusOfAddresses(const std::vector<NetworkAddress>& addresses) {
  long long best = NQReachability::notReachable;
  for (const NetworkAddress& address : addresses) best = better(best, statusOfAddress(address));
  return best;
}

long long statusOfRoutes() {
  constexpr int attempts = 3;  // a dump is cut short when routes change under it
  for (int i = 0; i < attempts; ++i) {
    if (const auto status = scanRoutes()) return *status;
  }
  return NQReachability::reachableViaWiFi;  // nothing is known: an attempt to send will tell
}

}  // namespace vantamo::core

#include "tools/collect/listener.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace vantamo::tools::collect {
namespace {

struct FreeAddress {
  void operator()(addrinfo* address) const { ::freeaddrinfo(address); }
};
using Address = std::unique_ptr<addrinfo, FreeAddress>;

Address addressOf(const std::string& text, int port) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(text.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) {
    throw std::runtime_error("--listen: " + text + " is no IP address");
  }
  return Address(found);
}

[[noreturn]] void fail(const std::string& address, int port) {
  throw std::runtime_error("cannot listen on " + address + ", port " + std::to_string(port) + ": " +
                           std::system_category().message(errno));
}

int boundPort(int socket) {
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  if (::getsockname(socket, reinterpret_cast<sockaddr*>(&bound), &size) != 0) return 0;
  // Both kinds have the port in the same place.
  sockaddr_in address{};
  std::memcpy(&address, &bound, sizeof address);
  return ntohs(address.sin_port);
}

}  // namespace

Listener listenOn(const std::string& address, int port) {
  constexpr int backlog = 4096;
  const Address wanted = addressOf(address, port);
  Listener listener;
  listener.socket =
      Descriptor(::socket(wanted->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int socket = listener.socket.number();
  const int yes = 1;
  if (socket < 0 || ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) != 0 ||
      ::bind(socket, wanted->ai_addr, wanted->ai_addrlen) != 0 || ::listen(socket, backlog) != 0) {
    fail(address, port);
  }
  listener.port = boundPort(socket);
  listener.host = wanted->ai_family == AF_INET6 ? "[" + address + "]" : address;
  listener.onLoopback = address.starts_with("127.") || address == "::1";
  listener.onAll = address == "0.0.0.0" || address == "::";
  return listener;
}

std::vector<std::string> addressesOfMachine() {
  struct FreeInterfaces {
    void operator()(ifaddrs* list) const { ::freeifaddrs(list); }
  };
  ifaddrs* list = nullptr;
  if (::getifaddrs(&list) != 0) return {};
  const std::unique_ptr<ifaddrs, FreeInterfaces> owner(list);
  std::vector<std::string> addresses;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    const bool isUsable = entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
                          (entry->ifa_flags & IFF_UP) != 0 &&
                          (entry->ifa_flags & IFF_LOOPBACK) == 0;
    if (!isUsable) continue;
    sockaddr_in address{};
    std::memcpy(&address, entry->ifa_addr, sizeof address);
    std::array<char, INET_ADDRSTRLEN> text{};
    if (::inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size()) != nullptr) {
      addresses.emplace_back(text.data());
    }
  }
  return addresses;
}

unsigned raiseDescriptorLimit() {
  constexpr rlim_t most = 65'536;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 256;
  const rlim_t wanted = std::min(limit.rlim_max, most);
  if (limit.rlim_cur < wanted) {
    const rlimit raised{wanted, limit.rlim_max};
    if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) limit.rlim_cur = wanted;
  }
  return static_cast<unsigned>(std::min(limit.rlim_cur, most));
}

}  // namespace vantamo::tools::collect

#include "cores/default/network_watcher.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace vantamo::core {

NetworkWatcher::NetworkWatcher()
    : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK)) {
  constexpr unsigned groups =
      RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (!socket_ || mnl_socket_bind(socket_.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
    throw std::system_error(errno, std::generic_category(), "network changes");
  }
}

int NetworkWatcher::fd() const { return mnl_socket_get_fd(socket_.get()); }

// What changed does not matter: the state is read anew after any change. An overrun therefore loses
// nothing, it is a change itself. When changes come faster than they are taken in, the rest is for
// the next time.
bool NetworkWatcher::takeChanges() const {
  constexpr int mostAtOnce = 10000;
  bool changed = false;
  std::array<char, 8192> buffer{};
  for (int i = 0; i < mostAtOnce; ++i) {
    const ssize_t got = ::recv(fd(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (got > 0 || (got < 0 && errno == ENOBUFS)) {
      changed = true;
    } else if (got == 0 || errno != EINTR) {
      break;
    }
  }
  return changed;
}

}  // namespace vantamo::core

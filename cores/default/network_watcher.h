#pragma once

#include <libmnl/libmnl.h>

#include <memory>

namespace vantamo::core {

/// Hears of changes of links, addresses and routes. For one thread.
class NetworkWatcher {
 public:
  /// Throws std::system_error when the system does not allow it.
  NetworkWatcher();

  /// Becomes readable when something has changed.
  [[nodiscard]] int fd() const;
  /// Takes in whatever was reported; true when that was anything, or more than could be kept.
  bool takeChanges() const;

 private:
  struct Close {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
  };
  std::unique_ptr<mnl_socket, Close> socket_;
};

}  // namespace vantamo::core

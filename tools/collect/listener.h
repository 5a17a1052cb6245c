#pragma once

#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

namespace vantamo::tools::collect {

/// Owns a file descriptor.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }

  [[nodiscard]] int number() const { return number_; }
  int release() { return std::exchange(number_, -1); }

 private:
  int number_;
};

/// A listening socket and what it is bound to.
struct Listener {
  Descriptor socket;
  /// As it stands in a URL: "127.0.0.1", "[::1]".
  std::string host;
  int port = 0;
  bool onLoopback = true;
  /// Whether any address of this machine leads here.
  bool onAll = false;
};

/// Listens on an IPv4 or IPv6 address; port 0 takes a free one. Throws std::runtime_error, naming
/// address, port and reason.
[[nodiscard]] Listener listenOn(const std::string& address, int port);

/// The IPv4 addresses by which others reach this machine.
[[nodiscard]] std::vector<std::string> addressesOfMachine();

/// Lets this process have as many descriptors as it may, and answers how many that are.
[[nodiscard]] unsigned raiseDescriptorLimit();

}  // namespace vantamo::tools::collect

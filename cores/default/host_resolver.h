#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cores/default/network_state.h"

namespace vantamo::core {

/// Looks up one host name without anybody waiting for it: a look-up can take minutes, so it runs on
/// a thread that nobody joins, and says through a descriptor that it is done.
///
/// answer() and lookUp() are safe from any thread; the rest is for one thread.
class HostResolver {
 public:
  enum class Outcome { pending, failed, found };
  struct Answer {
    Outcome outcome = Outcome::pending;
    std::vector<NetworkAddress> addresses;
  };

  /// Throws std::system_error when the system gives no descriptor.
  explicit HostResolver(std::string host);

  /// Begins a look-up, or another one after that which is under way; until it ends the last answer
  /// holds.
  void lookUp();
  [[nodiscard]] Answer answer() const;
  /// Becomes readable when a look-up has ended.
  [[nodiscard]] int fd() const;
  /// Takes that back; false when none had ended.
  bool takeEnd() const;

 private:
  struct State;
  std::shared_ptr<State> state_;  // outlives this while a look-up is under way
};

}  // namespace vantamo::core

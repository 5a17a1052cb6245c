#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace vantamo::bench {

/// An endpoint in a process of its own, on a free port of this machine, which does as little as an
/// endpoint can: so that what is measured is the sender. It answers each POST with 204, after
/// `delay` if there is one, or never.
class Sink {
 public:
  enum class Answers { always, never };

  explicit Sink(std::chrono::milliseconds delay = {}, Answers answers = Answers::always);
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  /// Ends the process.
  ~Sink();

  [[nodiscard]] std::string url() const;

  struct Seen {
    std::size_t requests = 0;
    /// Different values of `Idempotency-Key`.
    std::size_t unique = 0;
    std::size_t connections = 0;
    /// From the first request to the last.
    std::chrono::duration<double> time{};
  };
  /// What has arrived since the last call.
  [[nodiscard]] Seen takeSeen() const;

 private:
  struct Shared;

  Shared* shared_;
  int process_ = 0;
  int port_ = 0;
};

}  // namespace vantamo::bench

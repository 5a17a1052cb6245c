#pragma once

#include <atomic>
#include <chrono>
#include <memory>

#include "cores/default/transport.h"

namespace vantamo::core {

/// HTTP and HTTPS through libcurl: one connection kept alive, certificates verified, redirects not
/// followed, response bodies thrown away, no signals.
class CurlTransport final : public Transport {
 public:
  CurlTransport();
  ~CurlTransport() override;

  /// Hold for the next post and later ones. Safe from any thread.
  void setTimeouts(std::chrono::milliseconds connect, std::chrono::milliseconds total);

  [[nodiscard]] HttpResult post(const HttpRequest& request) override;
  void interrupt() noexcept override;

 private:
  struct Handles;

  std::unique_ptr<Handles> handles_;
  std::atomic<long> connectMilliseconds_{10000};
  std::atomic<long> totalMilliseconds_{30000};
  std::atomic<bool> interrupted_{false};
};

}  // namespace vantamo::core

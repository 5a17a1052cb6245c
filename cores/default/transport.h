#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vantamo::core {

struct HttpRequest {
  std::string url;
  /// Names and values without line breaks or other control characters.
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
};

struct HttpResult {
  /// The server's status; 0 when there was no answer.
  int status = 0;
  /// Why there was none.
  std::string error;

  [[nodiscard]] bool delivered() const { return status >= 200 && status <= 299; }
};

/// Sends one request at a time. post() is for the sending thread alone.
class Transport {
 public:
  Transport() = default;
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  virtual ~Transport() = default;

  /// One POST, within the transport's time limits.
  [[nodiscard]] virtual HttpResult post(const HttpRequest& request) = 0;
  /// Ends a running post at once, and every later one. Safe from any thread.
  virtual void interrupt() noexcept = 0;
};

}  // namespace vantamo::core

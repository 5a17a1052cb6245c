#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "cores/default/exchange.h"

namespace vantamo::core {

/// The proxies that the process's environment names. Read on a host's thread: reading the
/// environment on another one would race with a host that changes it. Nothing in a privileged
/// process.
struct Proxies {
  std::string http;
  std::string https;
  std::string exceptions;

  static Proxies fromEnvironment();
};

/// What a transport is made with. Times are read at each post.
struct CurlOptions {
  std::atomic<std::chrono::milliseconds> connectTimeout{std::chrono::seconds(10)};
  std::atomic<std::chrono::milliseconds> requestTimeout{std::chrono::seconds(30)};
  Proxies proxies;
  /// A PEM file; "" for the system's authorities.
  std::string certificateFile;
  /// Called about once a second while a request waits for its answer; throws nothing.
  std::function<void()> meanwhile;
};

/// Starts libcurl for this process, unless that is done: about a millisecond. False when it cannot
/// be used; a transport then cannot be made.
bool startHttpLibrary() noexcept;

/// HTTP and HTTPS through libcurl: connections kept alive, certificates verified, redirects not
/// followed, no signals. Of a response only the status and two headers are looked at: a body is
/// read up to a bound and thrown away, and never unpacked.
class CurlTransport final : public ParallelTransport {
 public:
  /// Throws std::exception when libcurl cannot be used.
  explicit CurlTransport(std::shared_ptr<const CurlOptions> options);
  ~CurlTransport() override;

  [[nodiscard]] default_core::HttpResponse post(const default_core::HttpRequest& request) override;
  void interrupt() noexcept override;
  void exchange(RequestSource& source, std::size_t most) override;
  /// Connects to the URL's host, with TLS where the URL wants it, and sends no request. Why that is
  /// not possible; "" when it is.
  [[nodiscard]] std::string connect(const std::string& url);

 private:
  struct Handles;
  struct AllEnded;

  [[nodiscard]] bool begin(RequestSource& source);

  const std::shared_ptr<const CurlOptions> options_;
  const std::unique_ptr<Handles> handles_;
  std::atomic<bool> interrupted_{false};
};

}  // namespace vantamo::core

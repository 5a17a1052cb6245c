#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vantamo/export.h"

namespace vantamo::default_core {

/// What a Transport sends.
struct HttpRequest {
  std::string url;  ///< The endpoint, http or https.
  /// Names and values, without line breaks or other control characters.
  std::vector<std::pair<std::string, std::string>> headers;
  /// Any bytes, at most 1 MiB.
  std::string body;
};

/// What has come of it.
struct HttpResponse {
  /// The server's final status (200 and above); 0 when there was no answer.
  int status = 0;
  /// Why there was none; "" otherwise.
  std::string error{};
  /// The header `Retry-After` as it came; absent when the answer has none.
  std::optional<std::string> retryAfter{};
  /// The header `Date` as it came, by which a date in `Retry-After` is understood whatever the
  /// clock of this machine says; absent when the answer has none.
  std::optional<std::string> date{};
};

/// Sends requests for the default core, which keeps queue, retries and limits as they are. A host
/// that has an HTTP stack of its own derives from this and hands it over in Options:
///
///     class AppTransport final : public vantamo::default_core::Transport {
///      public:
///       HttpResponse post(const HttpRequest& request) override { ... }
///       void interrupt() noexcept override { ... }
///     };
class VANTAMO_EXPORT Transport {
 public:
  Transport() = default;
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;
  virtual ~Transport() = default;

  /// Sends one POST and waits for the answer's status, within time limits of its own. Must not
  /// follow redirects. Called on the core's thread, one request at a time. What it throws counts as
  /// no answer.
  [[nodiscard]] virtual HttpResponse post(const HttpRequest& request) = 0;
  /// Ends the post that is under way, if there is one, soon and without an answer. Later posts are
  /// not concerned. Called from any thread.
  virtual void interrupt() noexcept = 0;
};

}  // namespace vantamo::default_core

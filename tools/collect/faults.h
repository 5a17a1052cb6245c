#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "vantamo/value.h"

/// What the inspector does wrong on purpose, to see how an application takes it.
namespace vantamo::tools::collect {

/// Thrown for a fault that cannot be asked for; the message names the value.
class BadFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Failure {
  int status = 503;
  double percent = 100;
};

struct Faults {
  /// Answer so many of the tags with this status.
  std::optional<Failure> fail;
  /// Sent along with such an answer, in seconds.
  std::optional<int> retryAfter;
  /// How long every answer is held back.
  std::chrono::milliseconds slow{0};
  /// Close the connection in place of an answer.
  bool refuse = false;
};

/// "503:20%", "503:20" or "503" (all): a status from 300 to 599. Throws BadFault.
[[nodiscard]] Failure failureOf(std::string_view text);
/// Seconds from 0 to 86400. Throws BadFault.
[[nodiscard]] int retryAfterOf(std::string_view text);
/// "2s", "1.5s", "500ms", up to ten minutes. Throws BadFault.
[[nodiscard]] std::chrono::milliseconds durationOf(std::string_view text);

/// The switches as the page shows and sends them: {"fail":"503:20%","retryAfter":30,"slow":"2s",
/// "refuse":false}; null is off.
[[nodiscard]] Value::Map faultsAsMembers(const Faults& faults);
/// `faults` with what `members` name changed. Throws BadFault.
[[nodiscard]] Faults changed(Faults faults, const Value::Map& members);

/// What happens to one tag.
struct Verdict {
  int status = 204;
  std::optional<int> retryAfter;
  std::chrono::milliseconds delay{0};
  bool refused = false;
  /// The fault in words; empty for none.
  std::string words;

  [[nodiscard]] bool delivers() const { return !refused && status < 300; }
};

/// `draw` is a random number from 0 up to, not including, 100.
[[nodiscard]] Verdict verdictOf(const Faults& faults, double draw);

}  // namespace vantamo::tools::collect

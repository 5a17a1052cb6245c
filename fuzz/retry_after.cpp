// A wait that a server asks for is between nothing and a day, and digits mean seconds.

#include <algorithm>

#include "cores/default/retry_policy.h"
#include "fuzz/fuzz.h"

void vantamo::fuzz::check(std::string_view input) {
  const std::size_t line = std::min(input.find('\n'), input.size());
  default_core::HttpResponse response{503, {}, std::string(input.substr(0, line)), {}};
  if (line < input.size()) response.date = std::string(input.substr(line + 1));
  const auto now = std::chrono::system_clock::from_time_t(1'000'000'000);
  const auto wait = core::retryAfter(response, now);
  require(!wait || (wait->count() >= 0 && *wait <= core::longestRetryAfter), "a wait has bounds");
  const std::string& text = *response.retryAfter;
  const bool isNumber =
      !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
  if (isNumber && text.size() < 6) {
    require(wait && wait->count() == std::min(std::stol(text), 86400L) * 1000,
            "digits are seconds");
  }
}

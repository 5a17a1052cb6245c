#include "cores/default/retry_policy.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace vantamo::core {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t";
  const std::size_t first = std::min(text.find_first_not_of(blanks), text.size());
  const std::size_t last = text.find_last_not_of(blanks);
  return text.substr(first, last == std::string_view::npos ? 0 : last + 1 - first);
}

// Nothing for what is not digits alone; more than fits counts as the most that fits.
std::optional<seconds> asSeconds(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) return {};
  constexpr long long most = std::chrono::duration_cast<seconds>(longestRetryAfter).count();
  long long value = most;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return seconds(std::min(value, most));
}

// Seconds since 1970 of a date as HTTP writes it: a weekday's name comes first.
std::optional<long long> asDate(std::string_view text) {
  constexpr std::size_t longest = 64;
  const bool begins = !text.empty() && ((text[0] | 0x20) >= 'a' && (text[0] | 0x20) <= 'z');
  if (!begins || text.size() > longest || text.find('\0') != std::string_view::npos) return {};
  const time_t date = ::curl_getdate(std::string(text).c_str(), nullptr);
  return date < 0 ? std::nullopt : std::optional<long long>(date);
}

}  // namespace

milliseconds retryDelay(const RetryPolicy& policy, unsigned failures, double uniform) {
  constexpr unsigned mostDoublings = 62;
  const int doublings = static_cast<int>(std::min(std::max(failures, 1U) - 1, mostDoublings));
  const double grown = std::ldexp(static_cast<double>(policy.base.count()), doublings);
  const double ceiling = std::min(grown, static_cast<double>(policy.cap.count()));
  return milliseconds(std::llround(ceiling * std::clamp(uniform, 0.0, 1.0)));
}

Verdict judge(int status) {
  if (status >= 200 && status <= 299) return Verdict::delivered;
  if (status < 300) return Verdict::networkFailed;
  switch (status) {
    case 401:
    case 403:
    case 404:
    case 405: return Verdict::endpointWrong;
    case 407:  // a proxy's, on this network: not the message's fault
    case 408:
    case 429: return Verdict::serverFailed;
    default: return status >= 400 && status <= 499 ? Verdict::messageWrong : Verdict::serverFailed;
  }
}

std::optional<milliseconds> retryAfter(const default_core::HttpResponse& response,
                                       std::chrono::system_clock::time_point now) {
  if (!response.retryAfter) return {};
  const std::string_view text = trimmed(*response.retryAfter);
  if (const auto wait = asSeconds(text)) return *wait;
  const auto date = asDate(text);
  if (!date) return {};
  const auto from = response.date ? asDate(trimmed(*response.date)) : std::nullopt;
  const long long begin = from.value_or(std::chrono::system_clock::to_time_t(now));
  if (*date <= begin) return {};
  const auto most = std::chrono::duration_cast<seconds>(longestRetryAfter).count();
  return seconds(std::min<long long>(*date - begin, most));
}

}  // namespace vantamo::core

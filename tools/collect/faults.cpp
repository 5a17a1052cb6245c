#include "tools/collect/faults.h"

#include <array>
#include <charconv>
#include <cmath>

#include "tools/collect/problems.h"

namespace vantamo::tools::collect {
namespace {

template <class Number>
std::optional<Number> numberOf(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

std::string numberText(double number) {
  std::array<char, 32> text{};
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr};
}

std::string failureText(const Failure& failure) {
  return std::to_string(failure.status) + ":" + numberText(failure.percent) + "%";
}

std::string durationText(std::chrono::milliseconds duration) {
  return duration.count() % 1000 == 0 ? std::to_string(duration.count() / 1000) + "s"
                                      : std::to_string(duration.count()) + "ms";
}

std::string_view textOf(std::string_view name, const Value& value) {
  if (const std::string* text = value.ifString()) return *text;
  throw BadFault(std::string(name) + " must be a string or null");
}

int secondsOf(const Value& value) {
  if (const std::string* text = value.ifString()) return retryAfterOf(*text);
  if (!value.isNumber() || value.isBool()) throw BadFault("retryAfter must be seconds or null");
  return retryAfterOf(numberText(value.number()));
}

}  // namespace

Failure failureOf(std::string_view text) {
  const auto refuse = [text] {
    throw BadFault(
        "a failure must be STATUS:PERCENT% with a status from 300 to 599 and at most 100 %, as "
        "503:20%, not " +
        quotedShort(text));
  };
  const std::size_t colon = text.find(':');
  const auto status = numberOf<int>(text.substr(0, colon));
  std::string_view share = colon == std::string_view::npos ? "100" : text.substr(colon + 1);
  if (share.ends_with('%')) share.remove_suffix(1);
  const auto percent = numberOf<double>(share);
  if (!status || *status < 300 || *status > 599) refuse();
  if (!percent || !(*percent >= 0 && *percent <= 100)) refuse();
  return {*status, *percent};
}

int retryAfterOf(std::string_view text) {
  const auto seconds = numberOf<int>(text);
  if (!seconds || *seconds < 0 || *seconds > 86400) {
    throw BadFault("Retry-After must be whole seconds from 0 to 86400, not " + quotedShort(text));
  }
  return *seconds;
}

std::chrono::milliseconds durationOf(std::string_view text) {
  constexpr double most = 600'000;
  const bool isMilliseconds = text.ends_with("ms");
  const bool isSeconds = !isMilliseconds && text.ends_with('s');
  const auto number = numberOf<double>(text.substr(0, text.size() - (isMilliseconds ? 2 : 1)));
  const double milliseconds = number.value_or(-1) * (isSeconds ? 1000 : 1);
  if (!(isMilliseconds || isSeconds) || !(milliseconds >= 0 && milliseconds <= most)) {
    throw BadFault("a duration must be as 2s or 500ms, at most 600s, not " + quotedShort(text));
  }
  return std::chrono::milliseconds(std::llround(milliseconds));
}

Value::Map faultsAsMembers(const Faults& faults) {
  return {{"fail", faults.fail ? Value(failureText(*faults.fail)) : Value()},
          {"retryAfter", faults.retryAfter ? Value(*faults.retryAfter) : Value()},
          {"slow", faults.slow.count() > 0 ? Value(durationText(faults.slow)) : Value()},
          {"refuse", faults.refuse}};
}

Faults changed(Faults faults, const Value::Map& members) {
  for (const auto& [name, value] : members) {
    if (name == "fail") {
      faults.fail = value.isNull() ? std::nullopt : std::optional(failureOf(textOf(name, value)));
    } else if (name == "retryAfter") {
      faults.retryAfter = value.isNull() ? std::nullopt : std::optional(secondsOf(value));
    } else if (name == "slow") {
      faults.slow = durationOf(value.isNull() ? "0s" : textOf(name, value));
    } else if (name == "refuse") {
      if (!value.isBool() && !value.isNull()) throw BadFault("refuse must be true, false or null");
      faults.refuse = value.isBool() && value.booleanMeaning();
    } else {
      throw BadFault("there is no fault " + quotedShort(name));
    }
  }
  return faults;
}

Verdict verdictOf(const Faults& faults, double draw) {
  Verdict verdict;
  verdict.delay = faults.slow;
  if (faults.refuse) {
    verdict.refused = true;
    verdict.words = "connection closed without an answer";
  } else if (faults.fail && draw < faults.fail->percent) {
    verdict.status = faults.fail->status;
    verdict.retryAfter = faults.retryAfter;
    verdict.words = "answered " + std::to_string(verdict.status);
    if (verdict.retryAfter) {
      verdict.words += ", Retry-After " + std::to_string(*verdict.retryAfter);
    }
  }
  if (verdict.delay.count() > 0) {
    verdict.words += verdict.words.empty() ? "answered" : "";
    verdict.words += " after " + durationText(verdict.delay);
  }
  return verdict;
}

}  // namespace vantamo::tools::collect

#include "constraints/vt_constraints_checker.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "platform/process_singleton.h"
#include "support/debug_log.h"
#include "support/guarded.h"
#include "support/utf.h"

using vantamo::Text;
using vantamo::TextList;
using vantamo::Value;
using vantamo::constraints::Argument;
using vantamo::constraints::Limit;
using vantamo::support::debugLog;
using vantamo::support::withValues;

namespace {

constexpr const char* checkOperation = "+[VTConstraintsChecker satisfy:constraints:]";

Value::Map buildAllConstraints() {
  Value::Map all;
  for (const auto& limit : vantamo::constraints::builtInLimits()) {
    const Value* rows = all.find(limit.apiName);
    Value::Map api = rows == nullptr ? Value::Map() : rows->map();
    Value::Map row = {{"required", limit.required ? 1 : 0}, {"length", limit.length}};
    if (limit.count != 0) row.set("count", limit.count);
    api.set(limit.parameter, std::move(row));
    all.set(limit.apiName, std::move(api));
  }
  return all;
}

// The limits of one parameter, as far as they apply: an absent member and a limit of 0 are none.
struct ParameterLimits {
  explicit ParameterLimits(const Limit& limit)
      : refusesEmpty(limit.required), length(limit.length), count(limit.count) {}
  explicit ParameterLimits(const Value::Map& members) {
    if (const Value* required = members.find("required")) refusesEmpty = required->number() != 0;
    length = limitAt(members, "length");
    count = limitAt(members, "count");
  }

  static double limitAt(const Value::Map& members, std::string_view key) {
    const Value* limit = members.find(key);
    return limit == nullptr ? 0 : limit->number();
  }
  static bool exceeds(std::size_t measured, double limit) {
    return limit > 0 && static_cast<double>(measured) > limit;
  }
  [[nodiscard]] bool tooLong(std::string_view text) const {
    // No text has more UTF-16 code units than bytes.
    return exceeds(text.size(), length) && exceeds(vantamo::support::utf16Length(text), length);
  }
  [[nodiscard]] bool refuses(std::string_view text) const { return refusesEmpty && text.empty(); }

  bool refusesEmpty = false;
  double length = 0;
  double count = 0;
};

std::string numberText(double number) {
  std::array<char, 32> text{};
  // Whole numbers as such; what is far beyond any length may have an exponent.
  const bool isShort = number < 1e15;
  const auto form = isShort ? std::chars_format::fixed : std::chars_format::general;
  return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number, form).ptr};
}

void logViolation(std::string_view message, std::string_view parameter, std::string_view value,
                  int line = __builtin_LINE()) {
  debugLog(
      checkOperation, [&] { return withValues(message, parameter, value); }, line);
}

bool satisfiesText(std::string_view name, std::string_view value, const ParameterLimits& limits) {
  if (limits.refuses(value)) {
    logViolation("Failed value constraint check for parameter:%@ and value:%@", name, value);
    return false;
  }
  if (limits.tooLong(value)) {
    logViolation("Failed length constraint check for parameter:%@ and length:%@", name,
                 numberText(limits.length));
    return false;
  }
  return true;
}

bool satisfiesCount(std::string_view name, std::size_t size, const ParameterLimits& limits) {
  if (!ParameterLimits::exceeds(size, limits.count)) return true;
  logViolation("Failed count constraint check for parameter:%@ and count:%@", name,
               numberText(limits.count));
  return false;
}

std::string_view entryOf(const Value::List& list, std::size_t index) {
  return list[index].string();
}
std::string_view entryOf(const TextList& list, std::size_t index) { return list[index]; }

template <class List>
bool satisfiesEntries(std::string_view name, const List& list, const ParameterLimits& limits) {
  if (!limits.refusesEmpty && limits.length <= 0) return true;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string_view entry = entryOf(list, i);
    if (limits.refuses(entry)) {
      logViolation("Failed value constraint check for parameter:%@ and value:%@", name, entry);
      return false;
    }
    if (limits.tooLong(entry)) {
      logViolation("Failed value constraint check for parameter:%@ and length:%@", name,
                   numberText(limits.length));
      return false;
    }
  }
  return true;
}

// Whether the check goes on after this list; what it violates by itself enters `result`.
template <class List>
bool satisfiesList(std::string_view name, const List& list, const ParameterLimits& limits,
                   bool& result) {
  if (!satisfiesCount(name, list.size(), limits)) return result = false;
  result = satisfiesEntries(name, list, limits) && result;
  return true;
}

}  // namespace

const Value::Map& VTConstraintsChecker::allConstraints() {
  static constinit vantamo::platform::ProcessSingleton<Value::Map> constraints;
  return constraints.get([] { return new Value::Map(buildAllConstraints()); });
}

bool VTConstraintsChecker::satisfy(const Value::Map& parameters, Text apiName) {
  constexpr const char* operation = "+[VTConstraintsChecker satisfy:constraintsFor:]";
  return vantamo::support::guarded(operation, true, [&](bool& result) {
    const Value::Map& all = allConstraints();
    if (all.empty()) {
      debugLog(operation, [] { return "Constraints not loaded"; });
      return;
    }
    if (apiName.absentOrEmpty()) {
      debugLog(operation, [] { return "Empty API name for constraints check"; });
      return;
    }
    if (const Value* api = all.find(apiName.view())) result = satisfy(parameters, api->map());
  });
}

bool VTConstraintsChecker::satisfy(const Value::Map& parameters, const Value::Map& constraints) {
  return vantamo::support::guarded(checkOperation, true, [&](bool& result) {
    for (const auto& [name, members] : constraints) {
      const Value* value = parameters.find(name);
      if (value == nullptr || value->isNull()) continue;
      const ParameterLimits limits(members.map());
      if (const std::string* text = value->ifString()) {
        if (!satisfiesText(name, *text, limits)) {
          result = false;
          return;
        }
      }
      const Value::List* list = value->ifList();
      if (list != nullptr && !satisfiesList(name, *list, limits, result)) return;
    }
  });
}

bool VTConstraintsChecker::satisfy(std::span<const Argument> arguments, Text apiName) {
  return vantamo::support::guarded(checkOperation, true, [&](bool& result) {
    const std::span<const Limit> all = vantamo::constraints::builtInLimits();
    const auto isOfApi = [&](const Limit& limit) { return limit.apiName == apiName.view(); };
    auto row = std::ranges::find_if(all, isOfApi);
    for (; row != all.end() && isOfApi(*row); ++row) {
      const Limit& limit = *row;
      const auto argument = std::ranges::find(arguments, limit.parameter, &Argument::name);
      if (argument == arguments.end()) continue;
      const ParameterLimits limits(limit);
      if (argument->text.present() &&
          !satisfiesText(argument->name, argument->text.view(), limits)) {
        result = false;
        return;
      }
      if (argument->list.present() &&
          !satisfiesList(argument->name, argument->list, limits, result)) {
        return;
      }
    }
  });
}

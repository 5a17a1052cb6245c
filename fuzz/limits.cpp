// A text, alone or in a list, is within a limit of its own length, and not within a smaller one.

#include "constraints/vt_constraints_checker.h"
#include "fuzz/fuzz.h"

void vantamo::fuzz::check(std::string_view input) {
  int length = 0;
  for (const char32_t character : charactersOf(input)) length += character > 0xFFFF ? 2 : 1;
  const auto isWithin = [](const Value& value, int limit) {
    const Value::Map limits = {{"a", Value::Map{{"length", limit}}}};
    return VTConstraintsChecker::satisfy(Value::Map{{"a", value}}, limits);
  };
  for (const Value& value : {Value(input), Value(Value::List{"", input})}) {
    require(isWithin(value, length), "a text is within its own length");
    // A limit of 0 is none.
    require(length < 2 || !isWithin(value, length - 1), "a text is not within a smaller length");
  }
}

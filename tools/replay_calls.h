#pragma once

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "vantamo/value.h"

namespace vantamo::tools {

/// Thrown for a line that names no call that could be executed.
class MalformedCall : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class ArgumentKind { text, list, number };

struct Argument {
  std::string_view name;
  ArgumentKind kind = ArgumentKind::text;
  /// Whether the event is refused without it.
  bool required = false;
};

/// One call that a script can make.
struct Call {
  std::vector<Argument> arguments;
  /// Executes it with members that fit `arguments`; answers a boolean, a string or null.
  std::function<Value(const Value::Map& members)> execute;
};

using Calls = std::map<std::string_view, Call>;

/// Every operation of the facade, under its name.
[[nodiscard]] Calls facadeCalls();

/// One line of a script. Throws MalformedCall when it is not one JSON value.
[[nodiscard]] Value lineOf(const std::string& text);

/// The call that a script's line names, its members checked. Throws MalformedCall.
[[nodiscard]] const Call& callOf(const Value& line, const Calls& calls);

}  // namespace vantamo::tools

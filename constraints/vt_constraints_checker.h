#pragma once

#include <span>
#include <string_view>

#include "vantamo/text.h"
#include "vantamo/value.h"

namespace vantamo::constraints {

/// One row of the table of limits.
struct Limit {
  std::string_view apiName;
  std::string_view parameter;
  /// A string that is present, or each string of a list, must not be empty.
  bool required;
  /// Most UTF-16 code units of a string, or of each string of a list.
  int length;
  /// Most entries of a list; 0 for no limit.
  int count = 0;
};

/// The built-in limits, in the order in which they are checked.
[[nodiscard]] std::span<const Limit> builtInLimits();

/// One argument of an event under its name; a text or a list, the other one absent.
struct Argument {
  std::string_view name;
  Text text;
  TextList list;
};

}  // namespace vantamo::constraints

/// Tells whether the arguments of an event are within the limits. It changes nothing; the first
/// violation is written to the debug log.
///
/// Limits have this shape: API name -> parameter name -> {"required": 0 or 1, "length": n,
/// "count": n}, each member optional, a length or count of 0 meaning no limit. An argument that is
/// missing, the null marker, or neither string nor list is not checked. What cannot be checked is
/// satisfied. Safe from any thread.
class VTConstraintsChecker {
 public:
  VTConstraintsChecker() = delete;

  /// The built-in limits in the shape above; built once.
  static const vantamo::Value::Map& allConstraints();

  /// Checks against the built-in limits of one API; an unknown API has none.
  static bool satisfy(const vantamo::Value::Map& parameters, vantamo::Text apiName);
  /// The same for arguments as the host has given them, without a map of them.
  static bool satisfy(std::span<const vantamo::constraints::Argument> arguments,
                      vantamo::Text apiName);
  /// Checks against one API's limits. A string or a list's size over its limit ends the check; a
  /// violation inside a list ends that list only, so later parameters may be logged too.
  static bool satisfy(const vantamo::Value::Map& parameters,
                      const vantamo::Value::Map& constraints);
};

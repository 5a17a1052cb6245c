#pragma once

#include <iosfwd>
#include <optional>
#include <string>

namespace vantamo::tools {

struct ReplayOptions {
  std::optional<std::string> bundle;
  /// "-" or nothing for standard input.
  std::optional<std::string> script;
  double drainSeconds = 5;
  /// Whether answers may be coloured.
  bool colours = false;
  /// Whether standard error may show how far the script has come.
  bool progress = false;
};

/// Runs the script line by line, writing one answer a line, and waits for delivery. The program's
/// exit status: 0, 1 for a malformed line, 3 for messages left. Throws std::runtime_error when the
/// bundle or the script cannot be read; nothing was executed then.
int replay(const ReplayOptions& options, std::istream& standardInput, std::ostream& answers);

}  // namespace vantamo::tools

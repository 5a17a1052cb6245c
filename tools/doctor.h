#pragma once

#include <iosfwd>
#include <optional>
#include <string>

namespace vantamo::tools {

struct DoctorOptions {
  /// The application's main bundle.
  std::string bundle;
  /// The file name of the application's executable.
  std::optional<std::string> application;
  /// A PEM file of authorities in place of the system's; "" for the system's.
  std::string certificates;
  /// Whether `lines` may be coloured.
  bool colours = false;
};

/// Examines, as far as that goes without sending anything, whether tags of the application would
/// reach their endpoint: one line for each check. The program's exit status: 0, or 1 when a check
/// has failed. Throws std::runtime_error when there is no such bundle.
int examine(const DoctorOptions& options, std::ostream& lines);

}  // namespace vantamo::tools

#pragma once

#include <optional>
#include <string>

#include "tools/collect/collector.h"

namespace vantamo::tools::collect {

struct CollectOptions {
  CollectorOptions server;
  /// Ends after so many tags.
  std::optional<std::size_t> until;
  /// Ends after so many seconds.
  std::optional<double> timeoutSeconds;
  /// A plan of expected tags; ends when all have arrived, unless `stay` or `exact`.
  std::optional<std::string> expect;
  bool inOrder = false;
  /// Goes on when all have arrived: an application may have more to send than its plan tells.
  bool stay = false;
  /// A tag that no line expects fails.
  bool exact = false;
  /// A tag with a problem fails.
  bool strict = false;
  /// No line for each tag.
  bool quiet = false;
};

/// Runs the inspector until it is told to end, by the options or by a signal, and tells of it on
/// standard output. The program's exit status: 0, or 1 when not all has arrived as expected. Throws
/// std::runtime_error when it cannot begin: a plan that cannot be read, an address that cannot be
/// listened on.
int collect(const CollectOptions& options);

/// Ends the server at SIGINT and SIGTERM for as long as this lives; one at a time.
class StopAtSignals {
 public:
  explicit StopAtSignals(Collector& collector);
  StopAtSignals(const StopAtSignals&) = delete;
  StopAtSignals& operator=(const StopAtSignals&) = delete;
  ~StopAtSignals();
};

}  // namespace vantamo::tools::collect

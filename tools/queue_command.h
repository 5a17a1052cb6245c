#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace vantamo::tools {

enum class QueueAction { list, dead, replay, purge, erase };

struct QueueOptions {
  /// The application's folder, which holds the numbered ones.
  std::string folder;
  /// Of dead letters; none for all.
  std::vector<std::string> ids;
  bool json = false;
  bool bodies = false;
  bool confirmed = false;
};

/// Does `action` in every numbered folder that no process owns, one line for each message or folder
/// concerned; what could not be done goes to `diagnostics`. The program's exit status: 0; 1 when a
/// folder failed or an id was not found; 3 when a folder belongs to a running process. Throws
/// std::exception, and has changed nothing, when `folder` is no queue folder of this user's.
int runOnQueue(QueueAction action, const QueueOptions& options, std::ostream& lines,
               std::ostream& diagnostics);

}  // namespace vantamo::tools

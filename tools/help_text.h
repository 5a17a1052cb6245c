#pragma once

#include <string>

namespace vantamo::tools {

/// What `--help` tells below the options: the script's format, exit statuses, the environment, an
/// example.
[[nodiscard]] std::string programHelp();
[[nodiscard]] std::string replayHelp();
[[nodiscard]] std::string queueHelp();
[[nodiscard]] std::string doctorHelp();

}  // namespace vantamo::tools

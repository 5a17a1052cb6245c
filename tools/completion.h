#pragma once

#include <CLI/App.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace vantamo::tools {

/// What `type_name` says of an argument that a shell can complete.
inline constexpr const char* fileType = "FILE";
inline constexpr const char* folderType = "FOLDER";

/// What a shell may put in the place of the last of `words`, which follow the program's name: a
/// candidate a line, "@FILE" or "@FOLDER" for the names of those. Asked of the same objects that
/// parse the command line, so that nothing has to be listed twice.
void writeCompletions(const CLI::App& app, const std::vector<std::string>& words,
                      std::ostream& lines);

}  // namespace vantamo::tools

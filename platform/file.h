#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vantamo::platform {

/// Whether anything stands at `path`.
[[nodiscard]] bool exists(const std::string& path);
/// Whether it is certain that nothing stands at `path`: what may not be looked at may be there.
[[nodiscard]] bool isAbsent(const std::string& path);
/// Creates the folder and its parents, for this user only; false when it is not there afterwards.
bool createDirectories(const std::string& path);

/// The whole file. Absent when it cannot be read, is not a plain file or is larger than `limit`.
[[nodiscard]] std::optional<std::string> readFile(const std::string& path, std::size_t limit);

enum class FileWrite { done, notOpened, failed };

/// Replaces the file in one step: a reader, and the next start after a kill, sees the old content
/// or the new one. Readable by this user only. Does not wait for the disk. A file in a folder that
/// takes no new ones is written in place.
[[nodiscard]] FileWrite replaceFile(const std::string& path, std::string_view content);

}  // namespace vantamo::platform

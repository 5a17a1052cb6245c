#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/core_export.h"

namespace vantamo::platform {

/// Whether anything stands at `path`.
[[nodiscard]] VANTAMO_CORE_EXPORT bool exists(const std::string& path);
/// Whether it is certain that nothing stands at `path`: what may not be looked at may be there.
[[nodiscard]] bool isAbsent(const std::string& path);
/// Creates the folder and its parents, for this user only whatever the umask; false when it is not
/// there afterwards. A folder that is there keeps its mode.
bool createDirectories(const std::string& path);
/// Takes a folder of this user's that others may write to away from them. Anything else, a symbolic
/// link too, stays as it is.
void keepOthersOut(const std::string& folder);

/// What a symbolic link in a file's place is: the file it points to, or no file.
enum class Link { followed, refused };

/// The whole file. Absent when it cannot be read, is not a plain file or is larger than `limit`.
[[nodiscard]] std::optional<std::string> readFile(const std::string& path, std::size_t limit,
                                                  Link link = Link::followed);

enum class FileWrite { done, notOpened, failed };

/// Replaces the file in one step: a reader, and the next start after a kill, sees the old content
/// or the new one. Readable by this user only, whatever the umask. Does not wait for the disk. A
/// file in a folder that takes no new ones is written in place, unless it is a link, has a second
/// name or belongs to another user: then `notOpened`.
[[nodiscard]] FileWrite replaceFile(const std::string& path, std::string_view content);
/// Whether nothing stands at `path` afterwards.
bool removeFile(const std::string& path);
/// Removes what a replaceFile that was killed has left beside `path`, when it is older than `age`.
void removeLeftovers(const std::string& path, std::chrono::seconds age);

}  // namespace vantamo::platform

#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/linux/unique_fd.h"
#include "platform/random.h"

namespace vantamo::platform {
namespace {

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

bool exists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

bool isAbsent(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

bool createDirectories(const std::string& path) {
  // Each folder by itself, because the mode must hold for the parents that are made on the way.
  for (std::size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), 0700);
    if (slash == std::string::npos) break;
  }
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::optional<std::string> readFile(const std::string& path, std::size_t limit) {
  // Not blocking, so that a pipe put in the file's place cannot hold the host.
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat info {};
  if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  // One byte more than the file has, so that a file that grows meanwhile is noticed.
  std::string content(std::min(static_cast<std::size_t>(info.st_size), limit) + 1, '\0');
  std::size_t size = 0;
  while (size < content.size()) {
    const ssize_t got = ::read(file.get(), content.data() + size, content.size() - size);
    if (got < 0 && errno != EINTR) return {};
    if (got == 0) break;
    if (got > 0) size += static_cast<std::size_t>(got);
  }
  if (size == content.size()) return {};
  content.resize(size);
  return content;
}

FileWrite replaceFile(const std::string& path, std::string_view content) {
  const std::string temporary = path + "." + randomUuid();
  UniqueFd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) {
    file = UniqueFd(::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file) return FileWrite::notOpened;
    return writeAll(file.get(), content) ? FileWrite::done : FileWrite::failed;
  }
  const bool written = writeAll(file.get(), content);
  file.reset();
  if (written && ::rename(temporary.c_str(), path.c_str()) == 0) return FileWrite::done;
  ::unlink(temporary.c_str());
  return FileWrite::failed;
}

}  // namespace vantamo::platform

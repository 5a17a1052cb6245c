#include "platform/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <memory>

#include "platform/random.h"
#include "platform/unique_fd.h"

namespace vantamo::platform {
namespace {

// Otherwise the system tells nothing of files whose number or size has more than 32 bits.
static_assert(sizeof(off_t) == sizeof(std::int64_t), "build with -D_FILE_OFFSET_BITS=64");

constexpr mode_t onlyUser = 0600;
constexpr mode_t onlyUserFolder = 0700;

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Only a file that is certainly ours: not one that was planted to have another one overwritten.
FileWrite writeInPlace(const std::string& path, std::string_view content) {
  const UniqueFd file(::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat info {};
  if (!file || ::fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink != 1 ||
      info.st_uid != ::geteuid()) {
    return FileWrite::notOpened;
  }
  const bool written = ::ftruncate(file.get(), 0) == 0 && writeAll(file.get(), content);
  return written ? FileWrite::done : FileWrite::failed;
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
    const std::string folder = path.substr(0, slash);
    if (::mkdir(folder.c_str(), onlyUserFolder) == 0) {
      ::fchmodat(AT_FDCWD, folder.c_str(), onlyUserFolder, AT_SYMLINK_NOFOLLOW);
    }
    if (slash == std::string::npos) break;
  }
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

void keepOthersOut(const std::string& folder) {
  const UniqueFd opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  struct stat info {};
  if (!opened || ::fstat(opened.get(), &info) != 0 || info.st_uid != ::geteuid()) return;
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) ::fchmod(opened.get(), onlyUserFolder);
}

std::optional<std::string> readFile(const std::string& path, std::size_t limit, Link link) {
  // Not blocking, so that a pipe put in the file's place cannot hold the host.
  const int follow = link == Link::followed ? 0 : O_NOFOLLOW;
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | follow));
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
  UniqueFd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, onlyUser));
  if (!file) return writeInPlace(path, content);
  ::fchmod(file.get(), onlyUser);
  const bool written = writeAll(file.get(), content);
  file.reset();
  if (written && ::rename(temporary.c_str(), path.c_str()) == 0) return FileWrite::done;
  ::unlink(temporary.c_str());
  return FileWrite::failed;
}

bool removeFile(const std::string& path) {
  return ::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR;
}

void removeLeftovers(const std::string& path, std::chrono::seconds age) {
  constexpr std::size_t uuidLength = 36;
  constexpr int mostEntries = 256;  // the host's thread walks through them
  const std::size_t slash = path.rfind('/');
  const std::string prefix = path.substr(slash + 1) + ".";
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.substr(0, slash + 1).c_str()),
                                                   &::closedir);
  if (folder == nullptr) return;
  const int descriptor = ::dirfd(folder.get());
  for (int i = 0; i < mostEntries; ++i) {
    const dirent* entry = ::readdir(folder.get());  // NOLINT(concurrency-mt-unsafe): own stream
    if (entry == nullptr) return;
    const std::string_view name = entry->d_name;
    if (!name.starts_with(prefix) || name.size() != prefix.size() + uuidLength) continue;
    struct stat info {};
    if (::fstatat(descriptor, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) continue;
    const bool isOld = std::time(nullptr) - info.st_mtime >= age.count();
    if (S_ISREG(info.st_mode) && isOld) ::unlinkat(descriptor, entry->d_name, 0);
  }
}

}  // namespace vantamo::platform

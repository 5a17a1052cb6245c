#include "platform/private_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include "platform/file.h"
#include "platform/random.h"

namespace vantamo::platform {
namespace {

constexpr mode_t folderMode = 0700;
constexpr mode_t fileMode = 0600;
constexpr mode_t permissionBits = 07777;

[[noreturn]] void fail(const std::string& path) {
  throw std::system_error(errno, std::generic_category(), path);
}

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

bool isSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool isOurs(const struct stat& info) { return info.st_uid == ::geteuid(); }

// The umask, or whoever made the file, may have left another mode.
void setMode(int fd, const struct stat& info, mode_t mode, const std::string& path) {
  if ((info.st_mode & permissionBits) != mode && ::fchmod(fd, mode) != 0) fail(path);
}

}  // namespace

PrivateFolder PrivateFolder::in(int parent, const std::string& name, std::string path) {
  if (::mkdirat(parent, name.c_str(), folderMode) == 0) {
    ::fchmodat(parent, name.c_str(), folderMode, 0);
  } else if (errno != EEXIST) {
    fail(path);
  }
  UniqueFd fd(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat info {};
  if (!fd || ::fstat(fd.get(), &info) != 0) fail(path);
  if (!isOurs(info)) {
    errno = EPERM;
    fail(path);
  }
  setMode(fd.get(), info, folderMode, path);
  return {std::move(fd), std::move(path)};
}

PrivateFolder PrivateFolder::at(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos || slash + 1 == path.size()) {
    errno = EINVAL;
    fail(path);
  }
  const std::string parent = slash == 0 ? "/" : path.substr(0, slash);
  createDirectories(parent);
  const UniqueFd fd(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) fail(parent);
  return in(fd.get(), path.substr(slash + 1), path);
}

PrivateFolder PrivateFolder::child(const std::string& name) const {
  return in(fd_.get(), name, pathOf(name));
}

PrivateFolder::File PrivateFolder::open(const std::string& name) const {
  File file;
  for (int attempt = 0;; ++attempt) {
    // Not blocking, so that a pipe in the file's place cannot hold anybody.
    file.fd = UniqueFd(::openat(fd_.get(), name.c_str(),
                                O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                                fileMode));
    struct stat info {};
    if (file.fd && ::fstat(file.fd.get(), &info) != 0) fail(pathOf(name));
    if (file.fd && S_ISREG(info.st_mode) && isOurs(info) && info.st_nlink == 1) {
      setMode(file.fd.get(), info, fileMode, pathOf(name));
      return file;
    }
    const bool inTheWay =
        file.fd || errno == ELOOP || errno == EISDIR || errno == ENXIO || errno == EACCES;
    if (attempt > 0 || !inTheWay) fail(pathOf(name));
    file.setAside = setAside(name);
  }
}

UniqueFd PrivateFolder::create(const std::string& name) const {
  UniqueFd file(::openat(fd_.get(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, fileMode));
  if (!file && errno != EEXIST) fail(pathOf(name));
  if (file) ::fchmod(file.get(), fileMode);
  return file;
}

bool PrivateFolder::holds(const std::string& name, const UniqueFd& file) const noexcept {
  struct stat named {};
  struct stat open {};
  return ::fstatat(fd_.get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         ::fstat(file.get(), &open) == 0 && isSame(named, open);
}

bool PrivateFolder::isHardLink(const std::string& name) const noexcept {
  struct stat info {};
  return ::fstatat(fd_.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISREG(info.st_mode) && info.st_nlink > 1;
}

std::string PrivateFolder::setAside(const std::string& name) const {
  std::string kept = name + ".aside-" + randomUuid();
  if (::renameat(fd_.get(), name.c_str(), fd_.get(), kept.c_str()) == 0) return kept;
  if (errno != ENOENT) fail(pathOf(name));
  return {};
}

std::vector<std::string> PrivateFolder::names() const {
  const int copy = ::openat(fd_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::unique_ptr<DIR, CloseFolder> folder(::fdopendir(copy));
  if (!folder) fail(path_);
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(folder.get())) {  // NOLINT(concurrency-mt-unsafe): own DIR
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  std::ranges::sort(names);
  return names;
}

void PrivateFolder::rename(const std::string& from, const std::string& to) const {
  if (::renameat(fd_.get(), from.c_str(), fd_.get(), to.c_str()) != 0) fail(pathOf(from));
}

bool PrivateFolder::remove(const std::string& name) const noexcept {
  return ::unlinkat(fd_.get(), name.c_str(), 0) == 0 || errno == ENOENT ||
         (errno == EISDIR && ::unlinkat(fd_.get(), name.c_str(), AT_REMOVEDIR) == 0);
}

void PrivateFolder::sync() const {
  if (::fsync(fd_.get()) != 0) fail(path_);
}

bool PrivateFolder::isSameAs(const PrivateFolder& other) const noexcept {
  struct stat a {};
  struct stat b {};
  return ::fstat(fd_.get(), &a) == 0 && ::fstat(other.fd_.get(), &b) == 0 && isSame(a, b);
}

bool PrivateFolder::isInPlace() const noexcept {
  struct stat here {};
  struct stat there {};
  return ::fstat(fd_.get(), &here) == 0 && ::lstat(path_.c_str(), &there) == 0 &&
         isSame(here, there);
}
}  // namespace vantamo::platform

#pragma once

#include <string>
#include <vector>

#include "platform/core_export.h"
#include "platform/unique_fd.h"

namespace vantamo::platform {

/// A folder that is this user's alone (0700, whatever the umask), held open, so that what is done
/// in it stays in it however names outside are changed meanwhile. Nothing that somebody else has
/// put in the place of a file is followed, written or erased: it is renamed.
///
/// Safe from any thread. Throws std::system_error where nothing else is said.
class VANTAMO_CORE_EXPORT PrivateFolder {
 public:
  /// A file, and the name under which what stood in its place was kept, if something did.
  struct File {
    UniqueFd fd;
    std::string setAside;
  };

  /// The folder at `path`, made with its parents when missing. Throws too when its last part is a
  /// symbolic link or belongs to another user.
  static PrivateFolder at(const std::string& path);
  /// The folder `name` in this one.
  [[nodiscard]] PrivateFolder child(const std::string& name) const;

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] std::string pathOf(const std::string& name) const { return path_ + "/" + name; }

  /// Opens a plain file of ours for reading and writing (0600), made when missing. A link, another
  /// user's file or anything else in its place is set aside first.
  File open(const std::string& name) const;
  /// Makes a file that was not there; without a descriptor when something stands in its place.
  [[nodiscard]] UniqueFd create(const std::string& name) const;
  /// Whether `name` is the open file, and not a link to it or another one.
  [[nodiscard]] bool holds(const std::string& name, const UniqueFd& file) const noexcept;
  /// Whether a plain file under `name` has another name too.
  [[nodiscard]] bool isHardLink(const std::string& name) const noexcept;
  /// Keeps what stands under `name` under a new name, and answers that; "" when nothing stands
  /// there.
  std::string setAside(const std::string& name) const;

  /// The names of what is in it, sorted.
  [[nodiscard]] std::vector<std::string> names() const;
  void rename(const std::string& from, const std::string& to) const;
  /// False when it is there still.
  bool remove(const std::string& name) const noexcept;
  /// Waits until the disk has the names in it.
  void sync() const;
  /// Whether both are one folder.
  [[nodiscard]] bool isSameAs(const PrivateFolder& other) const noexcept;
  /// Whether the path leads here still.
  [[nodiscard]] bool isInPlace() const noexcept;

 private:
  PrivateFolder(UniqueFd fd, std::string path) : fd_(std::move(fd)), path_(std::move(path)) {}
  static PrivateFolder in(int parent, const std::string& name, std::string path);

  UniqueFd fd_;
  std::string path_;
};
}  // namespace vantamo::platform

#pragma once

#include <string>

namespace vantamo::platform {

/// Keeps processes that share a folder from changing it at once, for a scope. Waits for another
/// holder for a few milliseconds only and then goes on without the lock: whoever holds it may be
/// stopped, and the host must not stop with it. A folder that cannot be opened is not locked.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder);
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  ~FolderLock();

 private:
  int descriptor_;
};

}  // namespace vantamo::platform

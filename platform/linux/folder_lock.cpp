#include "platform/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <ctime>

namespace vantamo::platform {

FolderLock::FolderLock(const std::string& folder)
    : descriptor_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (descriptor_ < 0) return;
  constexpr int tries = 9;
  constexpr timespec pause{0, 500'000};
  for (int i = 1; ::flock(descriptor_, LOCK_EX | LOCK_NB) != 0 && i < tries; ++i) {
    ::nanosleep(&pause, nullptr);
  }
}

FolderLock::~FolderLock() {
  if (descriptor_ < 0) return;
  // Said aloud, because a child that another thread has forked meanwhile holds the lock as well.
  ::flock(descriptor_, LOCK_UN);
  ::close(descriptor_);
}

}  // namespace vantamo::platform

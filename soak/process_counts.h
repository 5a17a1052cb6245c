#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <thread>

/// What this process has of what a library may leave behind.
namespace vantamo::test {

inline std::size_t entriesOf(const char* folder) {
  std::size_t count = 0;
  DIR* entries = ::opendir(folder);
  while (::readdir(entries) != nullptr) ++count;
  ::closedir(entries);
  return count - 2;  // . and ..
}
inline std::size_t threadCount() { return entriesOf("/proc/self/task"); }
// Without the one that lists them.
inline std::size_t descriptorCount() { return entriesOf("/proc/self/fd") - 1; }

// With the first thread a sanitizer starts one of its own. A thread that was joined may still be on
// its way out, and is not to be counted.
inline void runFirstThread() {
  std::string entry = "/proc/self/task/";
  std::thread([&entry] { entry += std::to_string(::gettid()); }).join();
  while (::access(entry.c_str(), F_OK) == 0) std::this_thread::yield();
}

}  // namespace vantamo::test

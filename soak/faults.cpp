// Faults of the disk. The functions here stand before the C library's for all of the program, its
// shared libraries included, and fail or dawdle as the environment variable VANTAMO_FAULTS says:
//
//   sync=2000     every fsync and fdatasync takes so many ms more
//   error=5       writes below the queue folder fail with that errno...
//   first=3       ...from this one on, counted from 1
//   last=3        ...up to this one
//   growing=1     ...only where the file would grow, as on a full disk
//   while=PATH    ...while that file exists
//
// with commas between them.

// Each function that takes a position is here twice, also where one name could stand for both.
#undef _FILE_OFFSET_BITS

#include "soak/faults.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

namespace {

struct Plan {
  long sync = 0;
  int error = 0;
  long first = 1;
  long last = LONG_MAX;
  bool growing = false;
  std::string whileExists;

  Plan() {
    const char* variable = std::getenv("VANTAMO_FAULTS");
    const std::string text = variable == nullptr ? "" : variable;
    const auto find = [&text](const std::string& name) -> std::string {
      const std::size_t at = ("," + text).find("," + name + "=");
      if (at == std::string::npos) return {};
      const std::size_t begin = at + name.size() + 1;
      return text.substr(begin, text.find(',', begin) - begin);
    };
    const auto number = [&find](const std::string& name, long absent) {
      const std::string value = find(name);
      return value.empty() ? absent : std::atol(value.c_str());
    };
    sync = number("sync", 0);
    error = static_cast<int>(number("error", 0));
    first = number("first", 1);
    last = number("last", LONG_MAX);
    growing = number("growing", 0) != 0;
    whileExists = find("while");
  }
};

const Plan& plan() {
  static const Plan plan;
  return plan;
}

std::atomic<long> syncs{0};
std::atomic<long> writes{0};

bool isInQueueFolder(int fd) {
  std::array<char, 4096> path{};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  return ::readlink(link.c_str(), path.data(), path.size() - 1) > 0 &&
         std::string(path.data()).find("/NQCore/") != std::string::npos;
}

// Whether a write that ends there is to fail; errno is set then.
bool fails(int fd, std::int64_t end) {
  const int before = errno;
  if (plan().error == 0 || !isInQueueFolder(fd)) return errno = before, false;
  const long number = ++writes;
  struct stat64 info {};
  bool hit = number >= plan().first && number <= plan().last;
  if (hit && plan().growing) hit = ::fstat64(fd, &info) != 0 || end > info.st_size;
  if (hit && !plan().whileExists.empty()) hit = ::access(plan().whileExists.c_str(), F_OK) == 0;
  errno = hit ? plan().error : before;
  return hit;
}

// The C library's own function.
template <class Function>
Function* original(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

void dawdle() {
  ++syncs;
  if (plan().sync > 0) {
    const timespec time{plan().sync / 1000, plan().sync % 1000 * 1000000};
    ::nanosleep(&time, nullptr);
  }
}

}  // namespace

long vantamo::test::syncCount() { return syncs; }

extern "C" {

int fsync(int fd) {
  static auto* const call = original<int(int)>("fsync");
  dawdle();
  return call(fd);
}
int fdatasync(int fd) {
  static auto* const call = original<int(int)>("fdatasync");
  dawdle();
  return call(fd);
}

ssize_t pwrite64(int fd, const void* bytes, size_t size, off64_t position) {
  static auto* const call = original<ssize_t(int, const void*, size_t, off64_t)>("pwrite64");
  return fails(fd, position + static_cast<off64_t>(size)) ? -1 : call(fd, bytes, size, position);
}
ssize_t pwrite(int fd, const void* bytes, size_t size, off_t position) {
  return pwrite64(fd, bytes, size, position);
}
ssize_t write(int fd, const void* bytes, size_t size) {
  static auto* const call = original<ssize_t(int, const void*, size_t)>("write");
  return fails(fd, INT64_MAX) ? -1 : call(fd, bytes, size);
}
int ftruncate64(int fd, off64_t size) noexcept {
  static auto* const call = original<int(int, off64_t)>("ftruncate64");
  return fails(fd, size) ? -1 : call(fd, size);
}
int ftruncate(int fd, off_t size) noexcept { return ftruncate64(fd, size); }
}

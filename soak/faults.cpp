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

#include "soak/faults.h"

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
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
bool fails(int fd, off_t end) {
  const int before = errno;
  if (plan().error == 0 || !isInQueueFolder(fd)) return errno = before, false;
  const long number = ++writes;
  struct stat info {};
  bool hit = number >= plan().first && number <= plan().last;
  if (hit && plan().growing) hit = ::fstat(fd, &info) != 0 || end > info.st_size;
  if (hit && !plan().whileExists.empty()) hit = ::access(plan().whileExists.c_str(), F_OK) == 0;
  errno = hit ? plan().error : before;
  return hit;
}

int dawdle(long call, int fd) {
  ++syncs;
  if (plan().sync > 0) {
    const timespec time{plan().sync / 1000, plan().sync % 1000 * 1000000};
    ::nanosleep(&time, nullptr);
  }
  return static_cast<int>(::syscall(call, fd));
}

}  // namespace

long vantamo::test::syncCount() { return syncs; }

extern "C" {

int fsync(int fd) { return dawdle(SYS_fsync, fd); }
int fdatasync(int fd) { return dawdle(SYS_fdatasync, fd); }

ssize_t pwrite64(int fd, const void* bytes, size_t size, off64_t position) {
  if (fails(fd, position + static_cast<off_t>(size))) return -1;
  return ::syscall(SYS_pwrite64, fd, bytes, size, position);
}
ssize_t pwrite(int fd, const void* bytes, size_t size, off_t position) {
  return pwrite64(fd, bytes, size, position);
}
ssize_t write(int fd, const void* bytes, size_t size) {
  if (fails(fd, LONG_MAX)) return -1;
  return ::syscall(SYS_write, fd, bytes, size);
}
int ftruncate64(int fd, off64_t size) noexcept {
  if (fails(fd, size)) return -1;
  return static_cast<int>(::syscall(SYS_ftruncate, fd, size));
}
int ftruncate(int fd, off_t size) noexcept { return ftruncate64(fd, size); }
}

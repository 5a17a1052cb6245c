#include "cores/default/curl_wakeup.h"

#include <curl/curl.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <vector>

namespace vantamo::core {
namespace {

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

bool isInheritableLocalSocket(int fd) {
  int domain = 0;
  socklen_t size = sizeof domain;
  const int flags = ::fcntl(fd, F_GETFD);
  return flags >= 0 && (flags & FD_CLOEXEC) == 0 &&
         ::getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) == 0 && domain == AF_UNIX;
}

std::vector<int> inheritableLocalSockets() {
  std::vector<int> sockets;
  const std::unique_ptr<DIR, CloseFolder> folder(::opendir("/proc/self/fd"));
  if (!folder) return sockets;
  while (const dirent* entry = ::readdir(folder.get())) {  // NOLINT(concurrency-mt-unsafe): own DIR
    int fd = -1;
    const char* end = entry->d_name + std::strlen(entry->d_name);
    if (std::from_chars(entry->d_name, end, fd).ptr == end && isInheritableLocalSocket(fd)) {
      sockets.push_back(fd);
    }
  }
  return sockets;
}

// Bytes that wait to be read here, and bytes that were written here and not yet read.
struct Waiting {
  int incoming = 0;
  int outgoing = 0;
};

Waiting waitingAt(int fd) {
  Waiting waiting;
  ::ioctl(fd, SIOCINQ, &waiting.incoming);
  ::ioctl(fd, SIOCOUTQ, &waiting.outgoing);
  return waiting;
}

// A byte that is sent to one socket of a pair tells the other one.
void keepPairFromChildren(int fd) {
  std::vector<int> others = inheritableLocalSockets();
  std::erase_if(others, [fd](int other) { return other == fd || waitingAt(other).incoming > 0; });
  if (::send(fd, "", 1, MSG_DONTWAIT | MSG_NOSIGNAL) != 1) return;
  for (const int other : others) {
    if (waitingAt(other).incoming == 1) ::fcntl(other, F_SETFD, FD_CLOEXEC);
  }
  ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

}  // namespace

// Other threads of the host make sockets at the same time. Those of the handle are known by what a
// wake-up changes at them.
void* makeMultiHandle() {
  const std::vector<int> before = inheritableLocalSockets();
  CURLM* multi = curl_multi_init();
  if (multi == nullptr) return nullptr;
  std::vector<int> candidates = inheritableLocalSockets();
  std::erase_if(candidates, [&before](int fd) { return std::ranges::count(before, fd) > 0; });
  std::vector<Waiting> quiet;
  std::ranges::transform(candidates, std::back_inserter(quiet), &waitingAt);
  curl_multi_wakeup(multi);
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const Waiting woken = waitingAt(candidates[i]);
    const bool reads = quiet[i].incoming == 0 && woken.incoming == 1;
    const bool writes = quiet[i].outgoing == 0 && woken.outgoing > 0 && woken.incoming == 0;
    if (reads || writes) ::fcntl(candidates[i], F_SETFD, FD_CLOEXEC);
  }
  curl_multi_poll(multi, nullptr, 0, 0, nullptr);  // takes the wake-up in
  return multi;
}

// While a name is looked up, the handle waits at one of a pair of sockets; nobody ever reads from
// the other one, so that a byte there does no harm.
void keepLookUpFromChildren(void* multi) {
  fd_set reads;
  fd_set writes;
  fd_set exceptions;
  FD_ZERO(&reads);
  FD_ZERO(&writes);
  FD_ZERO(&exceptions);
  int highest = -1;
  curl_multi_fdset(multi, &reads, &writes, &exceptions, &highest);
  for (int fd = 0; fd <= highest; ++fd) {
    if (FD_ISSET(fd, &reads) && isInheritableLocalSocket(fd)) keepPairFromChildren(fd);
  }
}

}  // namespace vantamo::core

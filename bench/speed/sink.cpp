#include "bench/speed/sink.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "platform/unique_fd.h"

namespace vantamo::bench {

using Clock = std::chrono::steady_clock;
using platform::UniqueFd;

// In memory that both processes see.
struct Sink::Shared {
  std::atomic<std::size_t> asked{0};
  std::atomic<std::size_t> answered{0};
  Seen seen;
};

namespace {

int check(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

class Server {
 public:
  Server(int listener, std::chrono::milliseconds delay, Sink::Answers answers)
      : listener_(listener), delay_(delay), answers_(answers) {
    watch(listener);
  }

  void turn() {
    std::array<epoll_event, 64> events{};
    const int count =
        ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeout());
    for (int i = 0; i < count; ++i) {
      const int fd = events[static_cast<std::size_t>(i)].data.fd;
      if (fd == listener_) {
        accept();
      } else {
        receive(fd);
      }
    }
    while (!due_.empty() && due_.front().first <= Clock::now()) {
      answer(due_.front().second);
      due_.pop_front();
    }
  }

  Sink::Seen takeSeen() {
    std::ranges::sort(keys_);
    keys_.erase(std::unique(keys_.begin(), keys_.end()), keys_.end());
    Sink::Seen seen{requests_, keys_.size(), accepted_, last_ - first_};
    requests_ = accepted_ = 0;
    keys_.clear();
    return seen;
  }

 private:
  struct Connection {
    UniqueFd socket;
    std::string received;
  };

  // A look at what the parent asks now and then.
  [[nodiscard]] int timeout() const {
    if (due_.empty()) return 5;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(due_.front().first - Clock::now());
    return static_cast<int>(std::clamp<long long>(left.count(), 0, 5));
  }

  void watch(int fd) {
    epoll_event event{EPOLLIN, {.fd = fd}};
    check(::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event), "epoll");
  }

  void accept() {
    UniqueFd socket(::accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) return;
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    watch(socket.get());
    ++accepted_;
    const int fd = socket.get();
    connections_[fd] = {std::move(socket), {}};
  }

  void receive(int fd) {
    Connection& connection = connections_.at(fd);
    std::array<char, 65536> buffer;  // NOLINT(*-member-init): filled by the next line
    const ssize_t got = ::recv(fd, buffer.data(), buffer.size(), 0);
    if (got <= 0) {
      if (got == 0 || errno != EAGAIN) connections_.erase(fd);
      return;
    }
    connection.received.append(buffer.data(), static_cast<std::size_t>(got));
    while (takeRequest(connection)) {
      if (answers_ == Sink::Answers::never) continue;
      if (delay_.count() > 0) {
        due_.emplace_back(Clock::now() + delay_, fd);
      } else {
        answer(fd);
      }
    }
  }

  // Whether there was a whole one.
  bool takeRequest(Connection& connection) {
    const std::string_view received = connection.received;
    const std::size_t head = received.find("\r\n\r\n");
    if (head == std::string_view::npos) return false;
    const auto value = [&](std::string_view name) {
      const std::size_t at = received.find(name);
      if (at == std::string_view::npos || at > head) return std::string_view();
      const std::size_t begin = at + name.size();
      return received.substr(begin, received.find('\r', begin) - begin);
    };
    const std::size_t size =
        head + 4 + std::strtoul(std::string(value("Content-Length: ")).c_str(), nullptr, 10);
    if (received.size() < size) return false;
    last_ = Clock::now();
    if (requests_++ == 0) first_ = last_;
    keys_.push_back(std::hash<std::string_view>()(value("Idempotency-Key: ")));
    connection.received.erase(0, size);
    return true;
  }

  static void answer(int fd) {
    constexpr std::string_view text = "HTTP/1.1 204 No Content\r\n\r\n";
    static_cast<void>(::send(fd, text.data(), text.size(), MSG_NOSIGNAL));
  }

  const int listener_;
  const std::chrono::milliseconds delay_;
  const Sink::Answers answers_;
  UniqueFd epoll_{::epoll_create1(EPOLL_CLOEXEC)};
  std::unordered_map<int, Connection> connections_;
  std::deque<std::pair<Clock::time_point, int>> due_;
  std::size_t requests_ = 0;
  std::size_t accepted_ = 0;
  std::vector<std::size_t> keys_;  // hashes: to keep more would take the sender's time
  Clock::time_point first_;
  Clock::time_point last_;
};

}  // namespace

Sink::Sink(std::chrono::milliseconds delay, Answers answers) {
  void* memory =
      ::mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  shared_ = new (memory) Shared();
  const UniqueFd listener(check(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  check(::bind(listener.get(), generic, size), "bind");
  check(::listen(listener.get(), 64), "listen");
  check(::getsockname(listener.get(), generic, &size), "getsockname");
  port_ = ntohs(address.sin_port);
  process_ = check(::fork(), "fork");
  if (process_ != 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    Server server(listener.get(), delay, answers);
    for (;;) {
      server.turn();
      if (shared_->asked == shared_->answered) continue;
      shared_->seen = server.takeSeen();
      ++shared_->answered;
    }
  } catch (const std::exception&) {
    ::_exit(1);
  }
}

Sink::~Sink() {
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
  ::munmap(shared_, sizeof(Shared));
}

std::string Sink::url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/collect"; }

Sink::Seen Sink::takeSeen() const {
  const std::size_t call = ++shared_->asked;
  while (shared_->answered != call) {
    if (::waitpid(process_, nullptr, WNOHANG) != 0) throw std::runtime_error("the sink has ended");
    ::usleep(200);
  }
  return shared_->seen;
}

}  // namespace vantamo::bench

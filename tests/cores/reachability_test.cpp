#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <condition_variable>
#include <cstdlib>
#include <thread>

#include "cores/default/host_reachability.h"
#include "cores/default/network_state.h"
#include "tests/kit/figure.h"
#include "tests/kit/host_test.h"
#include "vantamo/notification_center.h"

namespace vantamo::test {
namespace {

using core::HostReachability;
using std::chrono::seconds;

TEST(NetworkStateTest, LoopbackHostsAreKnownByName) {
  for (const char* host : {"localhost", "LOCALHOST.", "app.localhost", "127.0.0.1", "127.9.9.9",
                           "::1", "::ffff:127.0.0.1"}) {
    EXPECT_TRUE(core::isLoopbackHost(host)) << host;
  }
  for (const char* host : {"localhost.com", "notlocalhost", "128.0.0.1", "", "::2"}) {
    EXPECT_FALSE(core::isLoopbackHost(host)) << host;
  }
}

TEST(HostReachabilityTest, LoopbackIsReachableAtOnce) {
  for (const char* host : {"localhost", "127.0.0.1", "::1"}) {
    HostReachability watcher(host, [](long long) {});
    EXPECT_EQ(watcher.currentReachabilityStatus(), NQReachability::reachableViaWiFi);
    EXPECT_TRUE(watcher.startNotifier());
    EXPECT_TRUE(watcher.startNotifier());
    EXPECT_TRUE(watcher.stopNotifier());
    EXPECT_TRUE(watcher.stopNotifier());
  }
}

// Counts notifications and lets a test wait for a status.
class Listener {
 public:
  explicit Listener(HostReachability& watcher) {
    NotificationCenter::defaultCenter().addObserver(
        this, kNQReachabilityChangedNotification, [this, &watcher](const void*) {
          const long long now = watcher.currentReachabilityStatus();
          const std::scoped_lock lock(mutex_);
          last_ = now;
          changed_.notify_all();
        });
  }
  ~Listener() { NotificationCenter::defaultCenter().removeObserver(this); }

  bool waitFor(long long status, seconds longest = seconds(20)) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, longest, [&] { return last_ == status; });
  }
  // While the lock is held, the handler does not return.
  std::unique_lock<std::mutex> hold() { return std::unique_lock(mutex_); }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  long long last_ = -1;
};

// Runs `body` in a child process whose network is its own and empty; the test is skipped where the
// system does not allow that.
template <class Body>
void inEmptyNetwork(Body body) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  constexpr int notPermitted = 77;
  if (child == 0) {
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
      _exit(notPermitted);
    }
    body();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  if (WEXITSTATUS(status) == notPermitted) GTEST_SKIP() << "no network namespace permitted here";
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

int run(const char* command) { return std::system(command); }

TEST(HostReachabilityTest, FollowsAddressesRoutesAndLinks) {
  inEmptyNetwork([] {
    if (run("command -v ip >/dev/null && ip link add v0 type veth peer name v1") != 0) {
      _exit(77);
    }
    HostReachability literal("192.0.2.9", [](long long) {});
    Listener listener(literal);
    EXPECT_EQ(literal.currentReachabilityStatus(), 0);
    EXPECT_EQ(core::statusOfRoutes(), 0);
    EXPECT_TRUE(literal.startNotifier());

    EXPECT_EQ(run("ip addr add 192.0.2.1/24 dev v0 && ip link set v0 up && ip link set v1 up"), 0);
    EXPECT_TRUE(listener.waitFor(1));
    EXPECT_EQ(core::statusOfRoutes(), 1);
    EXPECT_EQ(core::statusOfAddress(*core::literalAddress("198.51.100.1")), 0);
    EXPECT_EQ(run("ip route add default via 192.0.2.2"), 0);
    EXPECT_EQ(core::statusOfAddress(*core::literalAddress("198.51.100.1")), 1);
    EXPECT_EQ(run("ip link set v1 down"), 0);  // the cable is out
    EXPECT_TRUE(listener.waitFor(0));
    EXPECT_EQ(core::statusOfRoutes(), 0);
    EXPECT_EQ(run("ip link set v0 down && ip link set v0 name wwan0 && ip link set wwan0 up && "
                  "ip link set v1 up"),
              0);
    EXPECT_TRUE(listener.waitFor(2));
    EXPECT_TRUE(literal.stopNotifier());
  });
}

// Executes commands of iproute2 as they are given, all in one process.
class Ip {
 public:
  ~Ip() { EXPECT_EQ(pclose(pipe_), 0); }
  void operator()(const std::string& commands) const {
    EXPECT_GE(std::fputs((commands + "\n").c_str(), pipe_), 0);
    EXPECT_EQ(std::fflush(pipe_), 0);
  }

 private:
  FILE* const pipe_ = popen("ip -batch -", "w");
};

TEST(HostReachabilityTest, IsRightSoonAfterEveryChangeAndAfterAnOverrun) {
  inEmptyNetwork([] {
    if (run("command -v ip >/dev/null && ip link add v0 type veth peer name v1") != 0) _exit(77);
    HostReachability watcher("192.0.2.9", [](long long) {});
    Listener listener(watcher);
    EXPECT_TRUE(watcher.startNotifier());
    const Ip ip;
    ip("addr add 192.0.2.1/24 dev v0\nlink set v0 up\nlink set v1 up");
    EXPECT_TRUE(listener.waitFor(1));
    const std::array<std::pair<const char*, int>, 4> changes = {
        {{"link set v1 down", 0},
         {"link set v1 up", 1},
         {"route del 192.0.2.0/24 dev v0", 0},
         {"route add 192.0.2.0/24 dev v0", 1}}};
    std::chrono::steady_clock::duration slowest{};
    for (std::size_t i = 0; i < 52; ++i) {
      const auto& [command, status] = changes.at(i % changes.size());
      const auto begun = std::chrono::steady_clock::now();
      ip(command);
      ASSERT_TRUE(listener.waitFor(status, seconds(2))) << i << ": " << command;
      slowest = std::max(slowest, std::chrono::steady_clock::now() - begun);
    }
    {
      const auto held = listener.hold();  // the handler of the first change blocks the watcher
      std::string burst = "link set v1 down";
      for (int i = 0; i < 5000; ++i) {
        burst +=
            "\nroute add blackhole 10.0." + std::to_string(i / 250) + "." + std::to_string(i % 250);
      }
      Ip()(burst + "\nlink set v0 down\nlink set v0 name wwan0\nlink set wwan0 up\nlink set v1 up");
      EXPECT_EQ(run("awk 'NR > 1 && $9 > 0 { lost = 1 } END { exit !lost }' /proc/net/netlink"), 0);
    }
    EXPECT_TRUE(listener.waitFor(2, seconds(2)));
    figure("Reachability is right soon after every change",
           "52 changes of a link or a route; then 5,000 at once, more than the system keeps",
           text("slowest ", std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count(),
                " ms; right within 2 s after the loss"));
  });
}

TEST(HostReachabilityTest, WithoutDescriptorsNothingIsCalledUnreachable) {
  HostReachability watcher("192.0.2.9", [](long long) {});
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlim_t before = std::exchange(limit.rlim_cur, 0);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(watcher.currentReachabilityStatus(), NQReachability::reachableViaWiFi);
  EXPECT_FALSE(core::statusOfRoutes());
  limit.rlim_cur = before;
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

TEST(HostReachabilityTest, ANameThatCannotBeFoundIsNotReachable) {
  inEmptyNetwork([] {
    // A network with a route, and with a resolver that nobody answers for.
    if (unshare(CLONE_NEWNS) != 0 ||
        run("mount --make-rprivate / && mount -t tmpfs none /mnt && "
            "echo nameserver 127.0.0.1 > /mnt/resolv.conf && "
            "mount --bind /mnt/resolv.conf /etc/resolv.conf && "
            "ip link add v0 type veth peer name v1 && ip addr add 192.0.2.1/24 dev v0 && "
            "ip link set v0 up && ip link set v1 up") != 0) {
      _exit(77);
    }
    alarm(20);
    while (core::statusOfRoutes() != 1) std::this_thread::yield();  // the link comes up by and by
    HostReachability watcher("tags.invalid", [](long long) {});
    EXPECT_EQ(watcher.currentReachabilityStatus(), 1);  // by the routes, until it is looked up
    Listener listener(watcher);
    EXPECT_TRUE(watcher.startNotifier());
    EXPECT_TRUE(listener.waitFor(0));
    // Another network, where the name is known.
    EXPECT_EQ(run("echo 192.0.2.7 tags.invalid > /mnt/hosts && mount --bind /mnt/hosts /etc/hosts"
                  " && ip addr add 192.0.2.2/24 dev v0"),
              0);
    EXPECT_TRUE(listener.waitFor(1));
    EXPECT_TRUE(watcher.stopNotifier());
  });
}

}  // namespace
}  // namespace vantamo::test

#include <sched.h>
#include <sys/wait.h>

#include <condition_variable>
#include <cstdlib>

#include "cores/default/host_reachability.h"
#include "cores/default/network_state.h"
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
    NotificationCenter::defaultCenter().addObserver(this, kNQReachabilityChangedNotification,
                                                    [this, &watcher](const void*) {
                                                      const std::scoped_lock lock(mutex_);
                                                      last_ = watcher.currentReachabilityStatus();
                                                      changed_.notify_all();
                                                    });
  }
  ~Listener() { NotificationCenter::defaultCenter().removeObserver(this); }

  bool waitFor(long long status) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, seconds(20), [&] { return last_ == status; });
  }

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

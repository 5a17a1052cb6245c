#include "cores/default/host_reachability.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>
#include <system_error>
#include <utility>

#include "cores/default/background_thread.h"
#include "cores/default/host_resolver.h"
#include "cores/default/network_state.h"
#include "cores/default/network_watcher.h"
#include "platform/linux/unique_fd.h"
#include "support/debug_log.h"
#include "vantamo/notification_center.h"

namespace vantamo::core {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds firstRetry = std::chrono::seconds(1);
constexpr milliseconds slowestRetry = std::chrono::minutes(5);

std::atomic<bool> processEnds{false};

}  // namespace

// The host and what is known of it.
struct HostReachability::Host {
  Host(std::string_view hostName, std::function<void(long long)> callback)
      : onChange(std::move(callback)), loopback(isLoopbackHost(std::string(hostName))) {
    if (loopback) return;
    literal = literalAddress(std::string(hostName));
    if (!literal) resolver = std::make_unique<HostResolver>(std::string(hostName));
  }

  [[nodiscard]] long long status() const {
    if (loopback) return reachableViaWiFi;
    if (literal) return statusOfAddress(*literal);
    const HostResolver::Answer answer = resolver->answer();
    if (answer.outcome == HostResolver::Outcome::failed) return notReachable;
    return answer.outcome == HostResolver::Outcome::found ? statusOfAddresses(answer.addresses)
                                                          : statusOfRoutes();
  }

  [[nodiscard]] bool nameFailed() const {
    return resolver && resolver->answer().outcome == HostResolver::Outcome::failed;
  }

  const std::function<void(long long)> onChange;
  const bool loopback;
  std::optional<NetworkAddress> literal;
  std::unique_ptr<HostResolver> resolver;
};

// One run of the notifier, shared with its thread, which may outlive the watcher for a moment.
struct HostReachability::Watch {
  Watch(std::shared_ptr<const Host> watched, const void* watcher)
      : host(std::move(watched)), sender(watcher), stop(::eventfd(0, EFD_CLOEXEC)) {
    if (!stop) throw std::system_error(errno, std::generic_category(), "reachability");
    // Taken before the look-up begins, so that its end is a change however soon it comes.
    last = host->status();
    if (host->resolver) host->resolver->lookUp();
  }

  // Each round waits for a change, then tells when the status is another one.
  void run() {
    milliseconds retry = firstRetry;
    for (;;) {
      HostResolver* resolver = host->resolver.get();
      const int timeout = host->nameFailed() ? static_cast<int>(retry.count()) : -1;
      std::array<pollfd, 3> fds = {{{stop.get(), POLLIN, 0},
                                    {network.fd(), POLLIN, 0},
                                    {resolver != nullptr ? resolver->fd() : -1, POLLIN, 0}}};
      const int ready = ::poll(fds.data(), fds.size(), timeout);
      if (fds[0].revents != 0) return;
      const bool networkChanged = network.takeChanges();
      if (resolver != nullptr) resolver->takeEnd();
      // Another network may have other addresses for the name; and a name that could not be looked
      // up is tried again from time to time.
      if (resolver != nullptr && (networkChanged || ready == 0)) {
        retry = networkChanged ? firstRetry : std::min(retry * 2, slowestRetry);
        resolver->lookUp();
      }
      if (const long long now = host->status(); now != std::exchange(last, now)) tell(now);
    }
  }

  // Whatever an observer throws, this thread goes on: there is nobody above it to catch it.
  void tell(long long now) const {
    if (processEnds) return;
    try {
      host->onChange(now);
      NotificationCenter::defaultCenter().post(kNQReachabilityChangedNotification, sender);
    } catch (...) {
      support::debugLog("-[NQReachability startNotifier]",
                        [] { return "An observer of the reachability failed"; });
    }
  }

  const std::shared_ptr<const Host> host;
  const void* const sender;
  const platform::UniqueFd stop;
  NetworkWatcher network;
  long long last = notReachable;  // the thread's alone
};

HostReachability::HostReachability(std::string_view hostName,
                                   std::function<void(long long)> onChange)
    : host_(std::make_shared<const Host>(hostName, std::move(onChange))) {}

HostReachability::~HostReachability() { stopNotifier(); }

void HostReachability::endNotifications() { processEnds = true; }

long long HostReachability::currentReachabilityStatus() { return host_->status(); }

bool HostReachability::startNotifier() {
  const platform::MutexLock lock(mutex_);
  if (watch_ != nullptr) return true;
  try {
    auto watch = std::make_shared<Watch>(host_, this);
    startBackgroundThread([watch] { watch->run(); }).detach();
    watch_ = std::move(watch);
  } catch (const std::system_error& error) {
    support::debugLog("-[NQReachability startNotifier]", [&] {
      return support::withValue("The network cannot be watched: %@", error.what());
    });
    return false;
  }
  return true;
}

bool HostReachability::stopNotifier() {
  const platform::MutexLock lock(mutex_);
  const auto watch = std::exchange(watch_, nullptr);
  return watch == nullptr || ::eventfd_write(watch->stop.get(), 1) == 0;
}

}  // namespace vantamo::core

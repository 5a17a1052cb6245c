#include "cores/default/host_reachability.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <exception>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "cores/default/background_thread.h"
#include "cores/default/host_resolver.h"
#include "cores/default/network_state.h"
#include "cores/default/network_watcher.h"
#include "platform/unique_fd.h"
#include "support/debug_log.h"
#include "vantamo/notification_center.h"

namespace vantamo::core {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds firstRetry = std::chrono::seconds(1);
constexpr milliseconds slowestRetry = std::chrono::minutes(5);
// Changes come in swarms: those of so short a time are told as one.
constexpr milliseconds settlingTime{50};

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

  // Nothing when the system cannot tell for now.
  [[nodiscard]] std::optional<long long> knownStatus() const {
    if (loopback) return reachableViaWiFi;
    if (literal) return statusOfAddress(*literal);
    const HostResolver::Answer answer = resolver->answer();
    if (answer.outcome == HostResolver::Outcome::failed) return notReachable;
    return answer.outcome == HostResolver::Outcome::found ? statusOfAddresses(answer.addresses)
                                                          : statusOfRoutes();
  }

  // Where nothing is known, an attempt to send will tell.
  [[nodiscard]] long long status() const { return knownStatus().value_or(reachableViaWiFi); }

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

  // Each round waits for a change, then tells when the status is another one. Nothing that fails
  // ends this: once a second another round tries to go on, and then anything may have changed.
  void run() {
    bool watching = true;
    while (!stopped) {
      try {
        if (watching) {
          wait();
        } else {
          network = NetworkWatcher();
          if (host->resolver) host->resolver->lookUp();
          watching = true;
        }
        tellChange();
        std::this_thread::sleep_for(settlingTime);
      } catch (const std::exception& error) {
        support::debugLog("-[NQReachability startNotifier]", [&] {
          return support::withValue("The network is not watched for now: %@", error.what());
        });
        watching = false;
        std::this_thread::sleep_for(firstRetry);
      }
    }
  }

  // Ends by a change, or when it is time for another attempt to find out.
  void wait() {
    HostResolver* resolver = host->resolver.get();
    const bool nameFailed = host->nameFailed();
    const milliseconds longest = !certain ? firstRetry : nameFailed ? retry : milliseconds(-1);
    std::array<pollfd, 3> fds = {{{stop.get(), POLLIN, 0},
                                  {network.fd(), POLLIN, 0},
                                  {resolver != nullptr ? resolver->fd() : -1, POLLIN, 0}}};
    const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(longest.count()));
    const int error = ready < 0 ? errno : EIO;
    if (stopped || error == EINTR) return;
    const bool networkChanged = network.takeChanges();
    const bool nameLookedUp = resolver != nullptr && resolver->takeEnd();
    if (ready != 0 && !networkChanged && !nameLookedUp) {
      // What no reading takes away, a descriptor that the host has closed for instance, would end
      // every wait at once.
      throw std::system_error(error, std::generic_category(), "reachability");
    }
    // Another network may have other addresses for the name; and a name that could not be looked
    // up is tried again from time to time.
    if (resolver != nullptr && (networkChanged || (nameFailed && ready == 0))) {
      retry = networkChanged ? firstRetry : std::min(retry * 2, slowestRetry);
      resolver->lookUp();
    }
  }

  void tellChange() {
    const std::optional<long long> now = host->knownStatus();
    certain = now.has_value();
    if (!now || *now == last || stopped || processEnds) return;
    host->onChange(*now);
    last = *now;
    try {
      NotificationCenter::defaultCenter().post(kNQReachabilityChangedNotification, sender);
    } catch (...) {
      // Whatever an observer throws, this thread goes on: there is nobody above it to catch it.
      support::debugLog("-[NQReachability startNotifier]",
                        [] { return "An observer of the reachability failed"; });
    }
  }

  const std::shared_ptr<const Host> host;
  const void* const sender;
  const platform::UniqueFd stop;  // readable once `stopped` is set
  std::atomic<bool> stopped{false};
  // The thread's alone:
  NetworkWatcher network;
  long long last = notReachable;
  bool certain = true;
  milliseconds retry = firstRetry;
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
  } catch (const std::exception& error) {
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
  if (watch == nullptr) return true;
  watch->stopped = true;
  return ::eventfd_write(watch->stop.get(), 1) == 0;
}

}  // namespace vantamo::core

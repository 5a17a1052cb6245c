#include "cores/default/host_resolver.h"

#include <netdb.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

#include "cores/default/background_thread.h"
#include "platform/mutex.h"
#include "platform/unique_fd.h"

namespace vantamo::core {

struct HostResolver::State {
  explicit State(std::string name)
      : host(std::move(name)), ended(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!ended) throw std::system_error(errno, std::generic_category(), "host look-up");
  }

  const std::string host;
  const platform::UniqueFd ended;
  platform::Mutex mutex;
  Answer answer VANTAMO_GUARDED_BY(mutex);
  bool underWay VANTAMO_GUARDED_BY(mutex) = false;
  bool wantedAgain VANTAMO_GUARDED_BY(mutex) = false;

  // True when another look-up is to follow.
  bool finish(Answer result) {
    bool again = false;
    {
      const platform::MutexLock lock(mutex);
      answer = std::move(result);
      again = underWay = std::exchange(wantedAgain, false);
    }
    ::eventfd_write(ended.get(), 1);
    return again;
  }
};

namespace {

HostResolver::Answer resolve(const std::string& host) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(host.c_str(), "80", &hints, &found) != 0) {
    return {HostResolver::Outcome::failed, {}};
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  HostResolver::Answer answer{HostResolver::Outcome::found, {}};
  for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
    NetworkAddress address;
    address.size = entry->ai_addrlen;
    std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
    answer.addresses.push_back(address);
  }
  return answer;
}

// A look-up under way must end, or no other would ever begin.
HostResolver::Answer resolveOrFail(const std::string& host) noexcept {
  try {
    return resolve(host);
  } catch (const std::exception&) {
    return {HostResolver::Outcome::failed, {}};
  }
}

}  // namespace

HostResolver::HostResolver(std::string host) : state_(std::make_shared<State>(std::move(host))) {}

void HostResolver::lookUp() {
  {
    const platform::MutexLock lock(state_->mutex);
    if (std::exchange(state_->underWay, true)) {
      state_->wantedAgain = true;
      return;
    }
  }
  try {
    startBackgroundThread([state = state_] {
      while (state->finish(resolveOrFail(state->host))) continue;
    }).detach();
  } catch (const std::exception&) {
    state_->finish({Outcome::failed, {}});
  }
}

HostResolver::Answer HostResolver::answer() const {
  const platform::MutexLock lock(state_->mutex);
  return state_->answer;
}

int HostResolver::fd() const { return state_->ended.get(); }

bool HostResolver::takeEnd() const {
  eventfd_t count = 0;
  return ::eventfd_read(fd(), &count) == 0;
}

}  // namespace vantamo::core

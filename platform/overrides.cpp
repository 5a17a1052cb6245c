#include "platform/overrides.h"

#include <atomic>
#include <utility>

#include "platform/mutex.h"
#include "platform/process_singleton.h"

namespace vantamo {
namespace {

using SharedOverrides = std::shared_ptr<const PlatformOverrides>;

// What the host has set holds in a forked child too. Where another thread was just setting it, the
// child cannot trust the shared pointer; this one it can, and what it points to is alive.
constinit std::atomic<const PlatformOverrides*> inForce{nullptr};

class Current {
 public:
  Current() {
    const PlatformOverrides* inherited = inForce;
    shared_ = inherited == nullptr ? std::make_shared<const PlatformOverrides>()
                                   : SharedOverrides(std::shared_ptr<void>(), inherited);
  }

  [[nodiscard]] SharedOverrides get() const {
    const platform::MutexLock lock(mutex_);
    return shared_;
  }
  // The old value dies with the parameter, after `inForce` has left it and the lock is gone.
  void set(SharedOverrides overrides) {
    const platform::MutexLock lock(mutex_);
    inForce = overrides.get();
    shared_.swap(overrides);
  }

 private:
  mutable platform::Mutex mutex_;
  SharedOverrides shared_ VANTAMO_GUARDED_BY(mutex_);
};

Current& current() {
  static constinit platform::ProcessSingleton<Current> instance;
  return instance.get();
}

}  // namespace

void setPlatformOverrides(PlatformOverrides overrides) {
  current().set(std::make_shared<const PlatformOverrides>(std::move(overrides)));
}

std::shared_ptr<const PlatformOverrides> platform::overrides() { return current().get(); }

}  // namespace vantamo

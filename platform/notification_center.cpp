#include "vantamo/notification_center.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "platform/process_singleton.h"

namespace vantamo {
namespace {

struct Observation {
  const void* observer;
  std::string name;
  std::shared_ptr<const NotificationCenter::Handler> handler;
};

}  // namespace

struct NotificationCenter::State {
  platform::Mutex mutex;
  std::vector<Observation> observations VANTAMO_GUARDED_BY(mutex);
};

NotificationCenter::NotificationCenter() : state_(std::make_unique<State>()) {}

NotificationCenter& NotificationCenter::defaultCenter() {
  static constinit platform::ProcessSingleton<NotificationCenter> center;
  return center.get([] { return new NotificationCenter(); });
}

void NotificationCenter::addObserver(const void* observer, std::string_view name, Handler handler) {
  Observation added{observer, std::string(name),
                    std::make_shared<const Handler>(std::move(handler))};
  const platform::MutexLock lock(state_->mutex);
  state_->observations.push_back(std::move(added));
}

void NotificationCenter::removeObserver(const void* observer) {
  std::vector<Observation> removed;  // dies after the lock is gone
  const platform::MutexLock lock(state_->mutex);
  auto& all = state_->observations;
  const auto tail = std::stable_partition(
      all.begin(), all.end(),
      [observer](const Observation& entry) { return entry.observer != observer; });
  removed.assign(std::make_move_iterator(tail), std::make_move_iterator(all.end()));
  all.erase(tail, all.end());
}

void NotificationCenter::post(std::string_view name, const void* sender) {
  std::vector<std::shared_ptr<const Handler>> handlers;
  {
    const platform::MutexLock lock(state_->mutex);
    for (const Observation& entry : state_->observations) {
      if (entry.name == name) handlers.push_back(entry.handler);
    }
  }
  for (const auto& handler : handlers) (*handler)(sender);
}

}  // namespace vantamo

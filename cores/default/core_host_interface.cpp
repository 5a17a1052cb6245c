// What default_core.h offers beyond the contract.

#include <algorithm>
#include <utility>

#include "cores/default/core_object.h"
#include "support/debug_log.h"
#include "vantamo/module_directory.h"

namespace vantamo::core {
namespace {

using Clock = Delivery::Clock;
using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr auto taskLimit = std::chrono::seconds(10);

// From now on, and no further than a wait may sensibly go.
Clock::time_point deadlineIn(milliseconds wait) {
  return Clock::now() + std::clamp<milliseconds>(wait, milliseconds(0), std::chrono::hours(24));
}

system_clock::time_point timeOf(std::int64_t sinceEpoch) {
  return system_clock::time_point(milliseconds(sinceEpoch));
}

}  // namespace

bool DefaultCore::setOptions(default_core::Options options) {
  const auto holds = [](const std::optional<std::size_t>& count, CountRange range) {
    return !count || range.holds(*count);
  };
  const bool valid = holds(options.maxQueuedMessages, queuedMessagesRange) &&
                     holds(options.maxQueueBytes, queueBytesRange) &&
                     holds(options.maxDeadLetters, deadLettersRange) &&
                     holds(options.maxConcurrentPosts, concurrentPostsRange) &&
                     (!options.queueFolder || options.queueFolder->starts_with('/'));
  bool taken = false;
  {
    const platform::MutexLock lock(mutex_);
    taken = valid && !used_;
    if (taken) std::swap(options_, options);  // what it holds may call back when it goes
  }
  if (taken) return true;
  support::debugLog("setOptions", [&] {
    return valid ? "The core is in use already" : "An option is out of its range";
  });
  return false;
}

default_core::Stats DefaultCore::stats() const {
  const Delivery* delivery = delivery_;
  return delivery == nullptr ? default_core::Stats{} : delivery->stats();
}

void DefaultCore::setCallback(Delivery::Callback callback) {
  Delivery* delivery = nullptr;
  Delivery::Callback given = callback;
  {
    const platform::MutexLock lock(mutex_);
    std::swap(callback_, callback);  // what it holds may call back when it goes
    delivery = delivery_;
  }
  if (delivery != nullptr) delivery->setCallback(std::move(given));
}

bool DefaultCore::flush(milliseconds deadline) {
  Delivery* delivery = deliveryOfLeftovers();
  if (delivery == nullptr) return true;
  // Never started, there is no endpoint to send anything to.
  if (!everStarted_)
    return delivery->isEmpty(deadlineIn(std::min<milliseconds>(deadline, taskLimit)));
  return delivery->flush(deadlineIn(deadline));
}

std::vector<default_core::DeadLetter> DefaultCore::deadLetters() {
  Delivery* delivery = deliveryOfLeftovers();
  if (delivery == nullptr) return {};
  const auto letters = std::make_shared<std::vector<default_core::DeadLetter>>();
  const bool done = delivery->perform(
      [letters](MessageQueue& queue, Statistics& /*statistics*/) {
        for (BuriedMessage& dead : queue.deadLetters()) {
          letters->push_back({std::move(dead.id), std::move(dead.moduleName), std::move(dead.body),
                              dead.status, std::move(dead.reason), timeOf(dead.accepted),
                              timeOf(dead.died)});
        }
      },
      Clock::now() + taskLimit, Delivery::Urgency::patient);
  return done ? std::move(*letters) : std::vector<default_core::DeadLetter>();
}

std::size_t DefaultCore::changeDeadLetters(const Ids& ids, DeadLetterChange change) {
  Delivery* delivery = deliveryOfLeftovers();
  if (delivery == nullptr) return 0;
  const auto count = std::make_shared<std::int64_t>(0);
  const bool done = delivery->perform(
      [=](MessageQueue& queue, Statistics& statistics) {
        const QueueChange made = (queue.*change)(ids);
        statistics.add(made);
        *count = std::max<std::int64_t>(-made.deadLetters, 0);
      },
      Clock::now() + taskLimit, Delivery::Urgency::patient);
  return done ? static_cast<std::size_t>(*count) : 0;
}

std::size_t DefaultCore::replayDeadLetters(const Ids& ids) {
  return changeDeadLetters(ids, &MessageQueue::revive);
}

std::size_t DefaultCore::purgeDeadLetters(const Ids& ids) {
  return changeDeadLetters(ids, &MessageQueue::purge);
}

// The modules first: what they post from here on is a new visitor's.
bool DefaultCore::eraseAll() {
  advertisingId_.set(nullptr);
  const bool modulesErased = eraseModuleData();
  Delivery* delivery = deliveryOfLeftovers();
  if (delivery == nullptr) return modulesErased;
  const auto erased = std::make_shared<bool>(false);
  const bool done = delivery->perform(
      [erased](MessageQueue& queue, Statistics& statistics) {
        QueueChange change;
        *erased = queue.erase(change);
        statistics.add(change);
      },
      Clock::now() + taskLimit, Delivery::Urgency::interrupting);
  return modulesErased && done && *erased;
}

}  // namespace vantamo::core

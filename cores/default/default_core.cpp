#include "vantamo/default_core.h"

#include "cores/default/core_object.h"
#include "cores/default/host_reachability.h"
#include "support/guarded.h"
#include "vantamo/nq_core.h"

using vantamo::core::DefaultCore;

namespace vantamo::default_core {
namespace {

// Runs `body` on the core; `result` is what is left when it fails.
template <class Result, class Body>
Result onCore(std::string_view operation, Result result, Body body) {
  return support::guarded(operation, std::move(result),
                          [&](Result& reached) { reached = body(DefaultCore::instance()); });
}

}  // namespace

bool setOptions(Options options) {
  return onCore("setOptions", false,
                [&](DefaultCore& core) { return core.setOptions(std::move(options)); });
}

Stats stats() {
  return onCore("stats", Stats{}, [](DefaultCore& core) { return core.stats(); });
}

void setDeliveryCallback(std::function<void(const DeliveryReport&)> callback) {
  support::guarded("setDeliveryCallback",
                   [&] { DefaultCore::instance().setCallback(std::move(callback)); });
}

bool flush(std::chrono::milliseconds deadline) {
  return onCore("flush", false, [&](DefaultCore& core) { return core.flush(deadline); });
}

std::vector<DeadLetter> deadLetters() {
  return onCore("deadLetters", std::vector<DeadLetter>(),
                [](DefaultCore& core) { return core.deadLetters(); });
}

std::size_t replayDeadLetters(const std::optional<std::vector<std::string>>& ids) {
  return onCore("replayDeadLetters", std::size_t{0},
                [&](DefaultCore& core) { return core.replayDeadLetters(ids); });
}

std::size_t purgeDeadLetters(const std::optional<std::vector<std::string>>& ids) {
  return onCore("purgeDeadLetters", std::size_t{0},
                [&](DefaultCore& core) { return core.purgeDeadLetters(ids); });
}

bool eraseAll() {
  return onCore("eraseAll", false, [](DefaultCore& core) { return core.eraseAll(); });
}

}  // namespace vantamo::default_core

// What the contract leaves to the core, in one object file: linking any of it links all.

NQCore& NQCore::sharedInstance() { return DefaultCore::instance(); }

// The posted body is the tag: nothing is added.
vantamo::Value::Map NQMessage::jsonDictionary() { return {}; }

std::shared_ptr<NQReachability> NQReachability::reachabilityWithHostName(
    std::string_view hostName) {
  try {
    return std::make_shared<vantamo::core::HostReachability>(
        hostName, [](long long status) { DefaultCore::instance().reachabilityChanged(status); });
  } catch (const std::exception& exception) {
    vantamo::support::debugLog("+[NQReachability reachabilityWithHostName:]", [&] {
      return vantamo::support::withValue("The host cannot be watched: %@", exception.what());
    });
    return nullptr;
  }
}

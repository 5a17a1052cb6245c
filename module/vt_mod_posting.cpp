#include "module/vt_mod.h"

#include <stdexcept>

#include "support/guarded.h"
#include "tags/vt_message.h"

using vantamo::state::StoredTag;
using vantamo::support::debugLog;
using vantamo::support::guarded;

bool VTMod::postTagDictionary(VTTagDictionary tag) {
  return post("-[VTMod postTagDictionary:]", {StoredTag::Form::json, std::move(tag).json()});
}

bool VTMod::postTagString(const VTTag& tag) {
  return post("-[VTMod postTagString:]", {StoredTag::Form::queryString, tag.tag()});
}

bool VTMod::networkIsReachable() const {
  const long long status = hostNetworkStatus_;
  return status == NQReachability::reachableViaWiFi || status == NQReachability::reachableViaWWAN;
}

bool VTMod::post(std::string_view operation, StoredTag tag) {
  return guarded(operation, false, [&](bool& result) {
    if (!canFire()) return;
    const auto captureAll =
        NQCore::sharedInstance().getConfigItem("CaptureAllOfflineTags", moduleName);
    auto stored = std::make_shared<const StoredTag>(std::move(tag));
    if (captureAll && captureAll->booleanMeaning()) {
      postDirectly(std::move(stored));
    } else if (!postThroughBuffer(std::move(stored))) {
      return;
    }
    flushIfManual(operation);
    result = true;
  });
}

void VTMod::postDirectly(Tag tag) {
  NQCore::sharedInstance().postMessage(VTMessage::initWithTag(std::move(tag)), moduleName);
}

// Appends, then hands over oldest first for as long as the network is there. An entry leaves the
// buffer only after it was posted, so that an exception on the way does not lose it.
bool VTMod::postThroughBuffer(Tag tag) {
  const std::scoped_lock lock(postingMutex_);
  if (vtTagsRingBuffer_ == nullptr) throw std::logic_error("the core has not enabled the module");
  VTTagsRingBuffer& buffer = *vtTagsRingBuffer_;
  buffer.addObject(std::move(tag));
  // A core that fires while it takes a message is answered at once; its tag leaves with the drain
  // that is under way, and the one being taken is not posted twice.
  if (draining_) return networkIsReachable();
  draining_ = true;
  const std::unique_ptr<bool, void (*)(bool*)> drained(&draining_,
                                                       [](bool* flag) { *flag = false; });
  while (networkIsReachable()) {
    const Tag oldest = buffer.objectAtIndex(0);
    if (oldest == nullptr) break;
    postDirectly(oldest);
    // Not so when a full buffer has dropped it meanwhile.
    if (buffer.objectAtIndex(0) == oldest) buffer.removeObjectAtIndex(0);
  }
  return networkIsReachable();
}

void VTMod::flushIfManual(std::string_view operation) {
  NQCore& core = NQCore::sharedInstance();
  const auto manual = core.getConfigItem("ManualPostEnabled", "NQCore");
  if (manual && manual->isNumber() && manual->booleanMeaning()) {
    debugLog(operation, [] { return "Manually posting tag"; });
    core.flushQueues();
  } else {
    debugLog(operation, [] { return "Queued Tag with NQCore"; });
  }
}

#include "platform/overrides.h"

#include "platform/mutex.h"

namespace vantamo {
namespace {

using SharedOverrides = std::shared_ptr<const PlatformOverrides>;

platform::Locked<SharedOverrides>& current() {
  static auto& locked =
      *new platform::Locked<SharedOverrides>(std::make_shared<const PlatformOverrides>());
  return locked;
}

}  // namespace

void setPlatformOverrides(PlatformOverrides overrides) {
  current().set(std::make_shared<const PlatformOverrides>(std::move(overrides)));
}

std::shared_ptr<const PlatformOverrides> platform::overrides() { return current().get(); }

}  // namespace vantamo

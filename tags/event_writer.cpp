#include "tags/event_writer.h"

#include <cmath>
#include <cstdint>

#include "platform/clock.h"
#include "platform/device.h"

namespace vantamo::tags {
namespace {

// Toward zero, as a 32-bit integer; what no such integer can hold counts as no screen.
std::string screenLengthText(double points) {
  const bool fits = points > static_cast<double>(INT32_MIN) - 1.0 &&
                    points < static_cast<double>(INT32_MAX) + 1.0;
  return std::to_string(fits ? static_cast<std::int32_t>(points) : 0);
}

}  // namespace

std::string sendTimeText() { return std::to_string(std::llrint(platform::secondsSince1970())); }

std::string fixedValueText(const FixedValue& value) {
  switch (value.source) {
    case Source::screenWidth: return screenLengthText(platform::mainScreenSize().width);
    case Source::screenHeight: return screenLengthText(platform::mainScreenSize().height);
    case Source::sendTime: return sendTimeText();
    case Source::constant: break;
  }
  return std::string(value.constant);
}

std::string locationText(const std::optional<std::string>& applicationName, Text marketingCode) {
  std::string text = "APP_APPLE_";
  text += applicationName ? *applicationName : absentPrinted;
  if (marketingCode.present()) text.append("/?vq_mmc=").append(marketingCode.view());
  return text;
}

}  // namespace vantamo::tags

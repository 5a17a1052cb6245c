#include "module/vt_mod.h"
#include "platform/device.h"
#include "support/guarded.h"
#include "support/json.h"

using vantamo::Text;
using vantamo::Value;
using vantamo::support::guarded;
namespace platform = vantamo::platform;

namespace {

// Spares nearly all bodies the reading: a string "6" stands there as it is, or with an escape.
bool mayHoldSix(std::string_view json) {
  return json.find("\"6\"") != std::string_view::npos || json.find("\\u") != std::string_view::npos;
}

}  // namespace

bool VTMod::respondsTo(NQOptionalOperation operation) const {
  return operation == NQOptionalOperation::httpHeadersForSessionId;
}

Value::Map VTMod::httpHeadersForSessionId(Text /*sessionId*/, Text json) {
  return guarded("-[VTMod httpHeadersForSessionId:andJson:]", Value::Map(),
                 [&](Value::Map& result) {
                   if (isTechnicalPropertiesTagJson(json)) {
                     result.merge(technicalPropertiesHeaders());
                   }
                 });
}

Value::Map VTMod::technicalPropertiesHeaders() {
  return guarded("-[VTMod technicalPropertiesHeaders]", Value::Map(), [](Value::Map& result) {
    result.set("VT-OS", "iOS");
    result.set("VT-MobileDevice", deviceModel() + " Apple");
    result.set("VT-DeviceType", deviceType());
    if (const auto version = platform::systemVersion()) result.set("VT-OSVersion", *version);
  });
}

std::string VTMod::deviceModel() {
  return guarded("+[VTMod deviceModel]", std::string(),
                 [](std::string& result) { result = platform::machineName(); });
}

std::string VTMod::deviceType() {
  return guarded("+[VTMod deviceType]", std::string("PHONE"), [](std::string& result) {
    if (platform::userInterfaceIdiom() == vantamo::DeviceIdiom::tablet) result = "TABLET";
  });
}

bool VTMod::isTechnicalPropertiesTagJson(Text json) {
  return guarded("+[VTMod isTechnicalPropertiesTagJson:]", false, [&](bool& result) {
    if (!mayHoldSix(json.view())) return;
    try {
      const Value parsed = vantamo::support::parseJson(json.view());
      result = parsed.isMap() && parsed.map().stringAt("tid") == "6";
    } catch (const vantamo::support::JsonError&) {
      // Text that is no JSON is simply no such tag: nothing to report.
      result = false;
    }
  });
}

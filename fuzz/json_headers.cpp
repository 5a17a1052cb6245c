// Only a JSON object whose "tid" is the string "6" gets headers, and then all four.

#include "fuzz/fuzz.h"
#include "module/vt_mod.h"

void vantamo::fuzz::check(std::string_view input) {
  const Value::Map headers = VTMod::sharedInstance().httpHeadersForSessionId("1", input);
  const nlohmann::json json = plainJson(input);
  if (json.is_object() && json.contains("tid") && json["tid"] == "6") {
    require(headers.size() == 4, "there are four headers");
    for (const char* name : {"VT-OS", "VT-OSVersion", "VT-MobileDevice", "VT-DeviceType"}) {
      require(headers.stringAt(name).has_value(), "each header is a string");
    }
  } else {
    require(headers.empty(), "other messages get no headers");
  }
}

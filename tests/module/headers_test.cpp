#include "module/vt_mod.h"
#include "platform/device.h"
#include "tests/kit/module_test.h"

namespace vantamo::test {
TEST_F(ModuleTest, OnlyTechnicalPropertiesGetTheDeviceHeaders) {
  overrides.deviceIdiom = DeviceIdiom::phone;
  overrides.systemVersion = "17.4";
  setPlatformOverrides(overrides);
  VTMod& module = VTMod::sharedInstance();
  const Value::Map expected = {{"VT-OS", "iOS"},
                               {"VT-MobileDevice", platform::machineName() + " Apple"},
                               {"VT-DeviceType", "PHONE"},
                               {"VT-OSVersion", "17.4"}};
  for (const char* json : {R"({"tid":"6"})", R"({"a":1,"tid":"6"})"}) {
    EXPECT_EQ(module.httpHeadersForSessionId("s", json), expected) << json;
  }
  for (const char* json :
       {R"({"tid":"1"})", R"({"tid":6})", "{}", R"(["tid","6"])", R"({"tid":"6")", "", R"("tid")",
        R"({"tid":"66"})", R"({"x":{"tid":"6"}})"}) {
    EXPECT_TRUE(module.httpHeadersForSessionId("s", json).empty()) << json;
  }
  EXPECT_TRUE(module.httpHeadersForSessionId("s", nullptr).empty());
  EXPECT_TRUE(log().empty());
}

TEST_F(ModuleTest, DeviceTypeFollowsTheIdiom) {
  const auto typeOf = [this](DeviceIdiom idiom) {
    overrides.deviceIdiom = idiom;
    setPlatformOverrides(overrides);
    return VTMod::deviceType();
  };
  EXPECT_EQ(typeOf(DeviceIdiom::tablet), "TABLET");
  EXPECT_EQ(typeOf(static_cast<DeviceIdiom>(3)), "PHONE");
}

}  // namespace vantamo::test

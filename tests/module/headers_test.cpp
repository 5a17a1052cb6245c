#include "module/vt_mod.h"
#include "platform/device.h"
#include "tests/kit/module_test.h"

namespace vantamo::test {
namespace {

TEST_F(ModuleTest, OnlyTechnicalPropertiesGetTheDeviceHeaders) {
  overrides.deviceIdiom = DeviceIdiom::phone;
  overrides.systemVersion = "17.4";
  setPlatformOverrides(overrides);
  VTMod& module = VTMod::sharedInstance();
  const std::vector<std::pair<std::string, bool>> cases = {{R"({"tid":"6"})", true},
                                                           {R"({"a":1,"tid":"6"})", true},
                                                           {R"({"tid":"1"})", false},
                                                           {R"({"tid":6})", false},
                                                           {R"({})", false},
                                                           {R"(["tid","6"])", false},
                                                           {R"({"tid":"6")", false},
                                                           {"", false},
                                                           {"\"tid\"", false},
                                                           {R"({"tid":"66"})", false},
                                                           {R"({"x":{"tid":"6"}})", false}};
  const Value::Map expected = {{"VT-OS", "iOS"},
                               {"VT-MobileDevice", platform::machineName() + " Apple"},
                               {"VT-DeviceType", "PHONE"},
                               {"VT-OSVersion", "17.4"}};
  for (const auto& [json, gets] : cases) {
    EXPECT_EQ(module.httpHeadersForSessionId(nullptr, json), gets ? expected : Value::Map())
        << json;
  }
  EXPECT_TRUE(module.httpHeadersForSessionId("s", nullptr).empty());
  EXPECT_TRUE(log().empty());
}

TEST_F(ModuleTest, DeviceTypeFollowsTheIdiom) {
  for (const auto& [idiom, type] :
       {std::pair(DeviceIdiom::tablet, "TABLET"), std::pair(DeviceIdiom::phone, "PHONE"),
        std::pair(static_cast<DeviceIdiom>(3), "PHONE")}) {
    overrides.deviceIdiom = idiom;
    setPlatformOverrides(overrides);
    EXPECT_EQ(VTMod::deviceType(), type);
  }
}

TEST_F(ModuleTest, OnlyTheHeadersAreOfferedOfTheOptionalOperations) {
  const VTMod& module = VTMod::sharedInstance();
  EXPECT_TRUE(module.respondsTo(NQOptionalOperation::httpHeadersForSessionId));
  for (const auto operation :
       {NQOptionalOperation::addCookiesToRequest, NQOptionalOperation::handleUncaughtException,
        NQOptionalOperation::saveCurrentConfigurableItems,
        NQOptionalOperation::zelAppWillTerminate}) {
    EXPECT_FALSE(module.respondsTo(operation));
  }
}

}  // namespace
}  // namespace vantamo::test

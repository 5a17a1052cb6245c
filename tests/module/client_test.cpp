#include "module/vt_mod.h"
#include "state/vt_mod_session.h"
#include "support/json.h"
#include "tests/kit/module_test.h"

namespace vantamo::test {
using testing::ElementsAre;

TEST_F(ModuleTest, ClientIdSwitchesUntilTheNextStart) {
  VTMod& module = VTMod::sharedInstance();
  EXPECT_TRUE(VTMod::setActiveClientId("early"));
  EXPECT_THAT(logTexts(),
              ElementsAre("Switching client id from:(null) to early", "Active clientId:early"));
  ASSERT_TRUE(module.start());
  EXPECT_EQ(module.clientId(), "123");
  clearLog();
  EXPECT_TRUE(VTMod::setActiveClientId("other"));
  EXPECT_TRUE(VTMod::setActiveClientId(""));
  EXPECT_THAT(logTexts(),
              ElementsAre("Switching client id from:123 to other", "Active clientId:other",
                          "Loading clientId from configuration file", "Active clientId:123"));
  for (const Value& configured : {Value(), Value(""), Value(9)}) {
    core.settings["VTMod"].set("ClientId", configured);
    EXPECT_FALSE(VTMod::clearActiveClientId());
  }
  EXPECT_FALSE(module.clientId());
  Vantamo::fireElement({.elementId = "e"});
  EXPECT_THAT(posted("ci"), ElementsAre("-"));
}

TEST_F(ModuleTest, OptOutKnowsThreeModesExactly) {
  EXPECT_EQ(Vantamo::getOptOut(), "opt_in");
  for (const std::string mode : {"opt_out", "anonymous", "opt_in"}) {
    EXPECT_TRUE(Vantamo::setOptOut(mode));
    EXPECT_EQ(Vantamo::getOptOut(), mode);
    EXPECT_EQ(VTMod::sharedInstance().isOptOutAnonymous(), mode == "anonymous");
  }
  for (const Text mode : {Text("OPT_OUT"), Text("anonymous "), Text(""), Text(),
                          Text(std::string_view("opt_out\0", 8))}) {
    Vantamo::setOptOut("opt_out");
    EXPECT_FALSE(Vantamo::setOptOut(mode));
    EXPECT_EQ(Vantamo::getOptOut(), "opt_in");
  }
}

TEST_F(ModuleTest, AnonymousModeHidesTheVisitorWithoutForgettingIt) {
  ASSERT_TRUE(Vantamo::startup());
  const std::string visitor = Vantamo::visitorId();
  Vantamo::setOptOut("anonymous");
  EXPECT_EQ(Vantamo::visitorId(), "1000000000000003");
  EXPECT_TRUE(Vantamo::startNewSession());
  EXPECT_EQ(VTModSession::sharedInstance().cjuid(), visitor);
  Vantamo::setOptOut("opt_in");
  EXPECT_EQ(Vantamo::visitorId(), visitor);
}

TEST_F(ModuleTest, ConstraintsOfTheSettingsAreAnAccessorOnly) {
  VTMod& module = VTMod::sharedInstance();
  EXPECT_FALSE(module.constraintsFor("firePageView"));
  core.settings["VTMod"].set("constraints", "text");
  EXPECT_FALSE(module.constraintsFor("firePageView"));
  const Value limits = support::parseJson(R"({"fireElement":{"elementId":{"length":1}}})");
  core.settings["VTMod"].set("constraints", limits);
  EXPECT_FALSE(module.constraintsFor("firePageView"));
  EXPECT_FALSE(module.constraintsFor(nullptr));
  EXPECT_EQ(module.constraintsFor("fireElement"), *limits.map().find("fireElement"));
  ASSERT_TRUE(Vantamo::startup());
  EXPECT_TRUE(Vantamo::fireElement({.elementId = "longer than one"}));
}

}  // namespace vantamo::test

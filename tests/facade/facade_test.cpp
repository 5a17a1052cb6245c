#include "tests/kit/module_test.h"

namespace vantamo::test {
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(ModuleTest, StartupTellsWhetherItWillTell) {
  const std::string banner =
      "\n\n\n***\n\n VANTAMO_DEBUG is not defined in environmental variables. No Debug logging "
      "will "
      "be available\n\n***\n\n\n";
  unsetenv("VANTAMO_DEBUG");
  EXPECT_TRUE(Vantamo::startup());
  EXPECT_FALSE(Vantamo::startup());
  EXPECT_THAT(rawLog(), ElementsAre(banner, banner));
}

TEST_F(ModuleTest, StartupIsSilentAtLevelZero) {
  setenv("VANTAMO_DEBUG", "0", 1);
  EXPECT_TRUE(Vantamo::startup());
  EXPECT_TRUE(rawLog().empty());
}

TEST_F(ModuleTest, StartupLogsTheVersionUnderItsOwnName) {
  EXPECT_TRUE(Vantamo::startup());
  EXPECT_EQ(log().at(0).operation, "+[Vantamo startup]");
  EXPECT_EQ(log().at(0).text, "Starting Vantamo SDK Version: 1.1.28");
}

TEST_F(ModuleTest, AdvertisingIdIsCopiedAndNotGuarded) {
  EXPECT_FALSE(Vantamo::getPRWAdvertisingId());
  std::string id = "ad-1";
  EXPECT_TRUE(Vantamo::setPRWAdvertisingId(id));
  id = "changed";
  EXPECT_EQ(Vantamo::getPRWAdvertisingId(), "ad-1");
  EXPECT_TRUE(Vantamo::setPRWAdvertisingId(nullptr));
  EXPECT_FALSE(Vantamo::getPRWAdvertisingId());
}

TEST_F(ModuleTest, TagsGoOutBeforeTheLimitsDecideTheAnswer) {
  ASSERT_TRUE(Vantamo::startup());
  const std::string over(257, 'x');
  EXPECT_FALSE(Vantamo::fireElement({.elementId = "e", .elementCategory = over}));
  EXPECT_THAT(posted("ecat"), ElementsAre(over));
  EXPECT_THAT(logTexts(), Contains("Failed length constraint check for parameter:elementCategory "
                                   "and length:50"));
  // What never enters the check cannot fail it.
  EXPECT_TRUE(
      Vantamo::fireConversionEvent({.eventId = "e", .actionType = "1", .eventCategory = over}));
  EXPECT_TRUE(Vantamo::fireRegistration({.customerId = "c", .customerCountry = over}));
  // Nothing given at all satisfies the limits; the module refuses it.
  clearLog();
  EXPECT_FALSE(Vantamo::fireShopAction9({}));
  EXPECT_THAT(logTexts(), ElementsAre("Product Id is required"));
  // The check is made for a refused event too.
  clearLog();
  EXPECT_FALSE(Vantamo::firePageView({.pageId = ""}));
  EXPECT_THAT(logTexts(), Contains(HasSubstr("value constraint check for parameter:pageId")));
}

TEST_F(ModuleTest, HostileValuesGoOutWellFormed) {
  ASSERT_TRUE(Vantamo::startup());
  const std::string megabyte(1 << 20, '\xff');
  const std::vector<std::string> many(10000, std::string("a\0\xff", 3));
  EXPECT_FALSE(Vantamo::fireElement({.elementId = "e", .attributes = many}));
  EXPECT_FALSE(Vantamo::fireElement({.elementId = megabyte}));
  const auto tags = bodies();
  EXPECT_EQ(tags.at(0).stringAt("e_a50"), std::string_view("a\0\uFFFD", 5));
  EXPECT_EQ(tags.at(0).find("e_a51"), nullptr);
  EXPECT_EQ(tags.at(1).stringAt("eid")->size(), 3U << 20U);
}

TEST_F(ModuleTest, ExceptionsEndInTheFacadeAndOthersPass) {
  ASSERT_TRUE(Vantamo::startup());
  core.onPostMessage = [](const Value::Map&) { throw std::runtime_error("broken"); };
  EXPECT_FALSE(Vantamo::fireElement({.elementId = "e"}));
  core.onPostMessage = [](const Value::Map&) { throw 7; };
  EXPECT_THROW(Vantamo::fireElement({.elementId = "e"}), int);
  core.onPostMessage = nullptr;
  EXPECT_TRUE(Vantamo::fireElement({.elementId = "f"}));
  EXPECT_THAT(posted("eid"), ElementsAre("e", "e", "f"));
}

}  // namespace vantamo::test

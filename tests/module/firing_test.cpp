#include "module/vt_mod.h"
#include "tags/event_formats.h"
#include "tests/kit/module_test.h"

namespace vantamo::test {
namespace {

using testing::ElementsAre;

class FiringTest : public ModuleTest {
 protected:
  bool fireOn(const PageView& event) { return module.firePageView(event); }
  bool fireOn(const ProductView& event) { return module.fireProductView(event); }
  bool fireOn(const ShopAction5& event) { return module.fireShopAction5(event); }
  bool fireOn(const ShopAction9& event) { return module.fireShopAction9(event); }
  bool fireOn(const Order& event) { return module.fireOrder(event); }
  bool fireOn(const Registration& event) { return module.fireRegistration(event); }
  bool fireOn(const Element& event) { return module.fireElement(event); }
  bool fireOn(const ConversionEvent& event) { return module.fireConversionEvent(event); }
  bool fireOn(const LinkClick& event) { return module.fireLinkClick(event); }
  bool fireOn(const Impression& event) { return module.fireImpression(event); }

  VTMod& module = VTMod::sharedInstance();
};

TEST_F(FiringTest, RequiredArgumentsAreTestedInTheirOwnOrder) {
  ASSERT_TRUE(module.start());
  // Each event, from all absent on, with one more required argument at each try.
  const std::map<std::string_view, std::vector<std::string>> orders = {
      {"firePageView", {"Page Id"}},
      {"fireProductview", {"Page Id", "Product Id", "Product Name"}},
      {"fireShopAction5",
       {"Product Id", "Product Name", "Quantity", "Base Unit Price", "Currency Code"}},
      {"fireShopAction9",
       {"Product Id", "Product Name", "Quantity", "Base Unit Price", "Currency Code", "Order Id",
        "Order Subtotal", "Customer Id"}},
      {"fireOrder",
       {"Order Id", "Order Subtotal", "Order Shipping Charge", "Customer Id", "Currency Code"}},
      {"fireRegistration", {"Customer Id"}},
      {"fireElement", {"Element Id"}},
      {"fireConversionEvent", {"Event Id", "Action Type"}},
      {"fireLinkClick", {"Link"}},
      {"fireImpression", {"Page Id"}},
  };
  int fired = 0;
  tags::forEachEvent([&]<class Event>(const tags::EventFormat<Event>& format) {
    Event event;
    for (const std::string& missing : orders.at(format.name)) {
      const auto field = std::ranges::find(format.fields, missing, &tags::Field<Event>::required);
      ASSERT_NE(field, format.fields.end());
      event.*field->text = "";  // of length zero, which counts as missing
      clearLog();
      EXPECT_FALSE(fireOn(event));
      EXPECT_THAT(logTexts(), ElementsAre(missing + " is required"));
      event.*field->text = "1";
    }
    EXPECT_TRUE(fireOn(event)) << format.name;
    EXPECT_EQ(core.messages.size(), static_cast<std::size_t>(++fired));
  });
}

TEST_F(FiringTest, AbsentOptionalStringsGoOutEmptyAndListsJoined) {
  ASSERT_TRUE(module.start());
  module.vtTagsRingBuffer()->setFirstPageView(false);
  const std::vector<std::string> none;
  EXPECT_TRUE(module.firePageView(PageView{.pageId = "p", .vqmmc = none}));
  EXPECT_TRUE(module.firePageView(PageView{.pageId = "p", .vqmmc = {"a", "b", "c"}}));
  EXPECT_TRUE(module.fireLinkClick({.link = "l"}));
  EXPECT_TRUE(module.fireImpression(Impression{.pageId = "p", .vqsp = {"a", ""}}));
  const std::string location = "APP_APPLE_App";
  EXPECT_THAT(posted("ul"), ElementsAre(location + "/?vq_mmc=", location + "/?vq_mmc=a-_-b-_-c",
                                        location, location));
  for (const char* key : {"cg", "se", "sr"})
    EXPECT_THAT(posted(key), ElementsAre("", "", "-", "-"));
  EXPECT_THAT(posted("pi"), ElementsAre("p", "p", "", "p"));
  EXPECT_THAT(posted("nm"), ElementsAre("-", "-", "", "-"));
  EXPECT_THAT(posted("vq_sp"), ElementsAre("-", "-", "-", "a-_-"));
  EXPECT_THAT(posted("vq_re"), ElementsAre("-", "-", "-", ""));
}

TEST_F(FiringTest, TechnicalPropertiesNeedNoPageId) {
  ASSERT_TRUE(module.start());
  EXPECT_TRUE(module.fireTechnicalProperties({}));
  EXPECT_THAT(posted("pi"), ElementsAre("(null)"));
  EXPECT_THAT(posted("cg"), ElementsAre(""));
}

TEST_F(FiringTest, TheGateComesBeforeEveryTest) {
  EXPECT_FALSE(module.canFire());
  EXPECT_FALSE(module.fireElement({}));
  EXPECT_THAT(logTexts(), ElementsAre("Cannot fire as module not enabled",
                                      "Cannot fire as module not enabled"));
  ASSERT_TRUE(module.start());
  module.setOptOut("opt_out");
  clearLog();
  EXPECT_FALSE(module.fireImpression(Impression{}));
  EXPECT_THAT(logTexts(), ElementsAre("Cannot fire as opted out"));
  EXPECT_EQ(log().at(0).operation, "-[VTMod canFire]");
  module.setOptOut("anonymous");
  EXPECT_TRUE(module.fireElement({.elementId = "e"}));
  EXPECT_THAT(posted("cjuid"), ElementsAre("1000000000000003"));
  module.setOptOutModeStr("opt_OUT");  // the gate knows only the one spelling
  EXPECT_TRUE(module.canFire());
}

}  // namespace
}  // namespace vantamo::test

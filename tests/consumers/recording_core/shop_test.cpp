// An app's own test of what it reports: the recording core keeps the tags.

#include <gtest/gtest.h>
#include <vantamo/platform.h>
#include <vantamo/recording_core.h>
#include <vantamo/vantamo.h>

#include <stdexcept>

namespace {

// What is tested: a part of the app.
void putIntoCart(const char* productId, const char* productName) {
  Vantamo::fireShopAction5({.productId = productId,
                            .productName = productName,
                            .quantity = "1",
                            .baseUnitPrice = "19.90",
                            .currencyCode = "EUR"});
}

class ShopTest : public testing::Test {
 protected:
  ShopTest() {
    vantamo::setPlatformOverrides({.cachesDirectory = testing::TempDir() + "/shop"});
    core.settings["VTMod"].set("PostMessageUrl", "https://tags.example/collect");
    Vantamo::startup();
  }
  ~ShopTest() override {
    Vantamo::shutdown();
    core.reset();
  }

  vantamo::RecordingCore& core = vantamo::RecordingCore::sharedInstance();
};

TEST_F(ShopTest, ReportsACartLine) {
  putIntoCart("sku-1", "Shoe");
  ASSERT_EQ(core.messages.size(), 1U);
  EXPECT_EQ(core.messages.at(0).body.stringAt("pr"), "sku-1");
}

TEST_F(ShopTest, GoesOnWhenTheCoreTakesNothing) {
  core.onPostMessage = [](const vantamo::Value::Map&) { throw std::runtime_error("full"); };
  EXPECT_NO_THROW(putIntoCart("sku-1", "Shoe"));
  EXPECT_TRUE(core.messages.empty());
}

}  // namespace

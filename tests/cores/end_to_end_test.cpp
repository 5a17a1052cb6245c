// The facade, the module and the real default core against a local endpoint.

#include "tests/kit/host_test.h"
#include "tools/local_endpoint.h"
#include "vantamo/default_core.h"
#include "vantamo/nq_core.h"
#include "vantamo/vantamo.h"

namespace vantamo::test {

using Collector = tools::LocalEndpoint;
namespace {

using std::chrono::seconds;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class EndToEndTest : public HostTest {
 protected:
  EndToEndTest() { writeSettings("NQCore", R"({"RetryBaseSeconds":0.01,"RetryCapSeconds":0.05})"); }
  ~EndToEndTest() override { Vantamo::shutdown(); }

  static bool fire(const std::string& id) { return Vantamo::fireElement({.elementId = id}); }
  static std::vector<std::string> keys(const std::vector<Collector::Received>& received,
                                       std::string_view key) {
    std::vector<std::string> values;
    for (const auto& request : received) values.push_back(request.key(key));
    return values;
  }
};

TEST_F(EndToEndTest, TagsArriveAsPostedWithTheirHeaders) {
  Collector collector;
  writeSettings("VTMod", collector.settings());
  ASSERT_TRUE(Vantamo::startup());
  EXPECT_TRUE(Vantamo::firePageView({.pageId = "home"}));
  EXPECT_TRUE(Vantamo::firePageView({.pageId = "\u00e9\xff"}));
  EXPECT_TRUE(Vantamo::fireLinkClick({.link = "l"}));
  const auto received = collector.wait(3);
  EXPECT_THAT(keys(received, "tid"), ElementsAre("6", "1", "8"));
  EXPECT_EQ(received[1].key("pi"), "\u00e9\uFFFD");
  EXPECT_EQ(received[1].key("cjsid"), Vantamo::sessionId());
  EXPECT_EQ(received[0].header("VT-OS"), "iOS");
  EXPECT_EQ(received[1].header("VT-OS"), "-");
  EXPECT_EQ(received[0].header("Content-Type"), "application/json");
  EXPECT_THAT(received[0].header("User-Agent"), testing::StartsWith("NQCore/"));
  EXPECT_THAT(received[0].header("Idempotency-Key"), testing::MatchesRegex("[0-9a-f-]{36}"));
  EXPECT_NE(received[0].header("Idempotency-Key"), received[1].header("Idempotency-Key"));
  EXPECT_TRUE(default_core::flush(seconds(20)));
  EXPECT_EQ(default_core::stats().queuedMessages, 0U);
}

TEST_F(EndToEndTest, FailedAttemptsAreRepeatedInOrderUnderTheSameKey) {
  Collector collector([](std::size_t number) { return number < 3 ? 503 : 200; });
  writeSettings("VTMod", collector.settings());
  ASSERT_TRUE(Vantamo::startup());
  fire("1");
  fire("2");
  const auto received = collector.wait(5);
  EXPECT_THAT(keys(received, "eid"), ElementsAre("1", "1", "1", "1", "2"));
  EXPECT_EQ(received[0].header("Idempotency-Key"), received[3].header("Idempotency-Key"));
  EXPECT_TRUE(default_core::flush(seconds(20)));
}

TEST_F(EndToEndTest, ManualPostingWaitsForTheFlush) {
  writeSettings("NQCore", R"({"ManualPostEnabled":true})");
  Collector collector;
  writeSettings("VTMod", collector.settings());
  ASSERT_TRUE(Vantamo::startup());
  NQCore& core = NQCore::sharedInstance();
  core.postMessage(std::make_unique<NQMessage>(), "VTMod");
  core.postMessage(std::make_unique<NQMessage>(), "VTMod");
  EXPECT_TRUE(collector.wait(1, seconds(0)).empty());
  core.flushQueues();
  EXPECT_EQ(collector.wait(1).at(0).body, "{}");
}

TEST_F(EndToEndTest, ALastWordGoesOutAfterShutdownWithItsHeaders) {
  Collector collector;
  writeSettings("VTMod", R"({"PostMessageUrl":"http://127.0.0.1:1/","CaptureAllOfflineTags":1})");
  ASSERT_TRUE(Vantamo::startup());
  EXPECT_TRUE(Vantamo::firePageView({.pageId = "p"}));
  EXPECT_TRUE(Vantamo::shutdown());
  writeSettings("VTMod", collector.settings());
  ASSERT_TRUE(Vantamo::startup());
  EXPECT_TRUE(Vantamo::shutdown());
  EXPECT_TRUE(default_core::flush(seconds(20)));  // a program's last word still goes out
  EXPECT_EQ(collector.wait(1).at(0).header("VT-OS"), "iOS");
}

TEST_F(EndToEndTest, BadSettingsAreNamedAndCountAsAbsent) {
  writeSettings("VTMod", "{\"AppName\":\"App\",\n\"PostMessageUrl\":}");
  writeSettings("NQCore", R"({"RetryCapSeconds":"soon"})");
  EXPECT_TRUE(Vantamo::startup());
  EXPECT_THAT(logTexts(), Contains(testing::AllOf(HasSubstr("VTMod.bundle/settings.json"),
                                                  HasSubstr("line 2"))));
  EXPECT_THAT(logTexts(), Contains(HasSubstr("RetryCapSeconds")));
  EXPECT_FALSE(fire("1"));  // no endpoint, so no network to wait for
  EXPECT_FALSE(Vantamo::resetToDefaultClientId());
}

TEST_F(EndToEndTest, WithoutAQueueFileMessagesStayInMemory) {
  Collector collector;
  writeSettings("VTMod", collector.settings());
  std::filesystem::create_directories(caches());
  std::ofstream(caches() / "NQCore") << "in the way";
  ASSERT_TRUE(Vantamo::startup());
  EXPECT_THAT(logTexts(), Contains(HasSubstr("messages are kept in memory only")));
  EXPECT_FALSE(default_core::stats().durable);
  EXPECT_TRUE(fire("1"));
  EXPECT_EQ(collector.wait(1).size(), 1U);
}

TEST_F(EndToEndTest, ContractHoldsForUnknownModulesAndMissingStarts) {
  NQCore& core = NQCore::sharedInstance();
  EXPECT_FALSE(core.enableModule("Nobody"));
  EXPECT_FALSE(core.disableModule("VTMod"));
  EXPECT_FALSE(core.getConfigItem("AppName", "VTMod"));
  EXPECT_THROW(core.postMessage(std::make_unique<NQMessage>(), "VTMod"), std::exception);
  core.flushQueues();
  EXPECT_TRUE(default_core::flush(seconds(0)));
  EXPECT_EQ(default_core::stats().queuedMessages, 0U);
  EXPECT_TRUE(Vantamo::setPRWAdvertisingId("ad"));
  EXPECT_EQ(Vantamo::getPRWAdvertisingId(), "ad");
  EXPECT_TRUE(Vantamo::setPRWAdvertisingId(""));
  EXPECT_FALSE(Vantamo::getPRWAdvertisingId());
}

}  // namespace
}  // namespace vantamo::test

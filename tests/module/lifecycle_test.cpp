#include <thread>

#include "module/vt_mod.h"
#include "tests/kit/module_test.h"
#include "vantamo/module_directory.h"
#include "vantamo/notification_center.h"

namespace vantamo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

class LifecycleTest : public ModuleTest {
 protected:
  VTMod& module = VTMod::sharedInstance();
};

TEST_F(LifecycleTest, StartFollowsItsSteps) {
  EXPECT_TRUE(module.start());
  EXPECT_TRUE(module.isEnabled());
  EXPECT_EQ(module.applicationName(), "App");
  EXPECT_EQ(module.clientId(), "123");
  EXPECT_EQ(module.hostNetworkStatus(), NQReachability::reachableViaWiFi);
  EXPECT_THAT(core.hostNames, ElementsAre("tags.example"));
  EXPECT_EQ(core.calls.setUserAgentFromBrowser, 1);
  EXPECT_TRUE(module.vtTagsRingBuffer()->firstPageView());
  const auto texts = logTexts();
  const std::vector<std::string> tail(texts.end() - 4, texts.end());
  EXPECT_THAT(tail,
              ElementsAre("reachability is nil, creating..", "enabling reachability notifications",
                          "Loading clientId from configuration file", "Active clientId:123"));

  clearLog();
  EXPECT_FALSE(module.start());
  EXPECT_THAT(logTexts(), ElementsAre("Module already enabled"));
  EXPECT_EQ(core.calls.enableModule, 1);
}

TEST_F(LifecycleTest, PostUrlDecidesWhetherReachabilityIsWatched) {
  const std::string emptyUrl = "postMessageURLString is nil or empty";
  // The setting, the hosts watched for it, and how often it is called empty.
  const std::vector<std::tuple<Value, std::vector<std::string>, std::size_t>> cases = {
      {nullptr, {}, 1},
      {"", {}, 1},
      {7, {}, 1},
      {"/no/host", {}, 0},
      {"http://[bad", {}, 0},
      {"http://h:1/x", {"h"}, 0}};
  for (const auto& [url, hosts, empty] : cases) {
    clearLog();
    core.hostNames.clear();
    core.settings["VTMod"].set("PostMessageUrl", url);
    EXPECT_TRUE(module.start());
    EXPECT_EQ(core.hostNames, hosts);
    EXPECT_THAT(logTexts(), Contains(emptyUrl).Times(testing::Eq(empty)));
    EXPECT_TRUE(module.stop());
  }
  EXPECT_EQ(core.calls.startNotifier, 1);
}

TEST_F(LifecycleTest, ACoreMayHaveNoWatcher) {
  core.makesReachability = false;
  EXPECT_TRUE(module.start());
  EXPECT_EQ(core.module("VTMod"), &module);
  EXPECT_EQ(module.hostNetworkStatus(), 0);
  module.networkReachabilityChanged();
  EXPECT_THAT(logTexts(), Contains("Reachability: NotReachable"));
}

TEST_F(LifecycleTest, StopAndStartAgainKeepTheWatcherAndReadSettingsAfresh) {
  EXPECT_FALSE(module.stop());
  EXPECT_THAT(logTexts(), Contains("module already disabled"));
  EXPECT_TRUE(module.start());
  VTMod::setActiveClientId("other");
  EXPECT_TRUE(module.stop());
  EXPECT_EQ(core.calls.stopNotifier, 1);
  core.settings["VTMod"] = {{"PostMessageUrl", "http://elsewhere/"}, {"AppName", 5}};
  clearLog();
  EXPECT_TRUE(module.start());
  EXPECT_THAT(logTexts(),
              Contains("Setting AppName must be a string but is of kind integer; it counts "
                       "as absent"));
  EXPECT_FALSE(module.applicationName());
  EXPECT_FALSE(module.clientId());
  EXPECT_EQ(core.hostNames.size(), 1U);
  EXPECT_EQ(core.calls.startNotifier, 2);
  core.changeReachability(2);
  EXPECT_EQ(module.hostNetworkStatus(), 2);
}

TEST_F(LifecycleTest, RefusalsOfTheCoreAreLoggedAndChangeNothing) {
  core.refuseEnable = true;
  EXPECT_FALSE(module.start());
  EXPECT_THAT(logTexts(), Contains("NQCore enableModule returned false"));
  EXPECT_FALSE(module.applicationName());
  EXPECT_FALSE(module.clientId());
  EXPECT_EQ(core.calls.setUserAgentFromBrowser, 0);
  core.refuseEnable = false;
  EXPECT_TRUE(module.start());
  core.refuseDisable = true;
  EXPECT_FALSE(module.stop());
  EXPECT_TRUE(module.isEnabled());
  EXPECT_THAT(logTexts(), Contains("NQCore disableModule returned false"));
  core.refuseDisable = false;
  core.stopNotifierAnswer = false;
  EXPECT_TRUE(module.stop());
  EXPECT_THAT(logTexts(), Contains("reachability notifications failed to stop"));
}

TEST_F(LifecycleTest, WithoutASessionTheModuleIsRefused) {
  overrides.cachesDirectory = "/proc/nowhere";
  setPlatformOverrides(overrides);
  EXPECT_FALSE(module.start());
  EXPECT_THAT(logTexts(), Contains("session or ring buffer objects could not be created, cannot "
                                   "enable module"));
  EXPECT_THAT(logTexts(), Contains("NQCore enableModule returned false"));
  overrides.cachesDirectory = caches().string();
  setPlatformOverrides(overrides);
  EXPECT_TRUE(module.start());
}

TEST_F(LifecycleTest, SessionsAndIdsExistOnlyWhileEnabled) {
  EXPECT_FALSE(module.newSession());
  EXPECT_THAT(logTexts(), Contains("module is not enabled, cannot start new session"));
  EXPECT_EQ(module.sessionId() + module.visitorId(), "");
  ASSERT_TRUE(module.start());
  const std::string session = module.sessionId();
  const std::string visitor = module.visitorId();
  module.vtTagsRingBuffer()->setFirstPageView(false);
  EXPECT_TRUE(module.newSession());
  EXPECT_TRUE(module.vtTagsRingBuffer()->firstPageView());
  EXPECT_NE(module.sessionId(), session);
  EXPECT_EQ(module.visitorId(), visitor);
}

TEST_F(LifecycleTest, AnErasedVisitorIsNeverSeenAgain) {
  ASSERT_TRUE(module.start());
  const std::string session = module.sessionId();
  std::vector<std::string> visitors = {module.visitorId()};
  core.changeReachability(0);
  Vantamo::firePageView({.pageId = "p"});
  EXPECT_TRUE(module.eraseVisitor());
  EXPECT_EQ(module.vtTagsRingBuffer()->count(), 0U);
  EXPECT_NE(module.sessionId(), session);
  for (int i = 0; i < 2; ++i) {
    EXPECT_THAT(visitors, testing::Not(Contains(module.visitorId())));
    visitors.push_back(module.visitorId());
    EXPECT_TRUE(module.newSession());
    EXPECT_EQ(module.visitorId(), visitors.back());
    ASSERT_TRUE(module.stop());
    EXPECT_TRUE(eraseModuleData());  // as a core asks for it
    EXPECT_TRUE(std::filesystem::is_empty(caches() / "VTSessions"));
    ASSERT_TRUE(module.start());
  }
}

TEST_F(LifecycleTest, ReachabilityChangesAreStoredAndNamed) {
  ASSERT_TRUE(module.start());
  clearLog();
  for (const int status : {0, 2, 1, 7, -1}) {
    core.changeReachability(status);
    EXPECT_EQ(module.hostNetworkStatus(), status);
  }
  EXPECT_THAT(logTexts(),
              ElementsAre("Reachability: NotReachable", "Reachability: ReachableViaWWAN",
                          "Reachability: ReachableViaWiFi", "Reachability: Unknown",
                          "Reachability: Unknown"));
  EXPECT_EQ(core.calls.postMessage, 0);
  EXPECT_TRUE(module.stop());
  core.changeReachability(0);
  EXPECT_EQ(module.hostNetworkStatus(), -1);
}

TEST_F(LifecycleTest, SettingsBundleIsLookedForInTwoPlaces) {
  EXPECT_FALSE(module.settingsBundlePath());
  EXPECT_THAT(logTexts(),
              ElementsAre("VTMod bundle not found in main bundle. Looking in frameworks ..",
                          "Using settings at: (null)"));
  writeSettings("VTMod", "{}");
  clearLog();
  const std::string path = (bundle() / "VTMod.bundle").string();
  EXPECT_EQ(module.settingsBundlePath(), path);
  EXPECT_THAT(logTexts(), ElementsAre("Using settings at: " + path));
}

TEST_F(LifecycleTest, ExceptionsOfTheCoreAreAnsweredWithWhatWasReached) {
  core.onEnableModule = [] { throw std::runtime_error("core broken"); };
  EXPECT_FALSE(module.start());
  EXPECT_THAT(logTexts(), Contains("Exception: core broken"));
  core.onEnableModule = [] { throw 7; };
  EXPECT_THROW(module.start(), int);
  core.onEnableModule = nullptr;
  core.onGetConfigItem = [](std::string_view key, std::string_view) {
    if (key == "AppName") throw std::runtime_error("no settings");
  };
  EXPECT_TRUE(module.start());  // the core had taken the module by then
  EXPECT_FALSE(module.isEnabled());
  core.onGetConfigItem = nullptr;
  EXPECT_TRUE(module.start());  // and takes it again
  EXPECT_TRUE(module.isEnabled());
}

TEST_F(LifecycleTest, StartsStopsAndEventsFromManyThreads) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      for (int j = 0; j < 25; ++j) {
        if (i == 0) j % 2 == 0 ? module.start() : module.stop();
        if (i == 1) core.changeReachability(j % 3);
        if (i == 2) Vantamo::setOptOut(j % 2 == 0 ? "anonymous" : "opt_in");
        Vantamo::firePageView({.pageId = "p", .attributes = {"a"}});
        Vantamo::visitorId();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  module.stop();
  EXPECT_TRUE(module.start());
  for (const Value::Map& body : bodies()) EXPECT_EQ(body.stringAt("cjvf"), "1");
}

}  // namespace
}  // namespace vantamo::test

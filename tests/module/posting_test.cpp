#include "module/vt_mod.h"
#include "tests/kit/module_test.h"

namespace vantamo::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

class PostingTest : public ModuleTest {
 protected:
  PostingTest() { EXPECT_TRUE(Vantamo::startup()); }

  static bool fire(const std::string& id) { return Vantamo::fireElement({.elementId = id}); }

  VTMod& module = VTMod::sharedInstance();
};

TEST_F(PostingTest, OfflineTagsWaitInOrderAndLeaveWithTheNextOne) {
  core.changeReachability(0);
  EXPECT_FALSE(fire("1"));
  EXPECT_FALSE(fire("2"));
  EXPECT_FALSE(fire("3"));
  EXPECT_TRUE(core.messages.empty());
  core.changeReachability(2);
  EXPECT_TRUE(core.messages.empty());  // a change of reachability sends nothing
  clearLog();
  EXPECT_TRUE(fire("4"));
  EXPECT_THAT(posted("eid"), ElementsAre("1", "2", "3", "4"));
  EXPECT_THAT(logTexts(), Contains("Queued Tag with NQCore").Times(1));
  EXPECT_EQ(module.vtTagsRingBuffer()->count(), 0U);
  EXPECT_EQ(core.messages.at(0).moduleName, "VTMod");
}

TEST_F(PostingTest, SettingsAreReadAtEveryPostAndReadDifferently) {
  // Each value, and which of the two settings it turns on.
  const std::map<std::string, Value::List> cases = {
      {"both", {true, 1, 0.5}},
      {"capture all", {"YES", "1"}},
      {"none", {nullptr, false, 0, "no", Value::List{1}}}};
  for (const auto& [on, values] : cases) {
    for (const Value& value : values) {
      core.messages.clear();
      core.settings["VTMod"].set("CaptureAllOfflineTags", value);
      core.settings["NQCore"].set("ManualPostEnabled", value);
      core.changeReachability(0);
      EXPECT_EQ(fire("offline"), on != "none");
      EXPECT_EQ(core.messages.size(), on != "none" ? 1U : 0U);
      core.changeReachability(1);
      clearLog();
      const int flushes = core.calls.flushQueues;
      EXPECT_TRUE(fire("online"));
      EXPECT_EQ(core.calls.flushQueues - flushes, on == "both" ? 1 : 0);
      EXPECT_THAT(logTexts(),
                  Contains(on == "both" ? "Manually posting tag" : "Queued Tag with NQCore"));
    }
  }
}

TEST_F(PostingTest, AnEntryLeavesTheBufferOnlyAfterItsPost) {
  core.changeReachability(0);
  fire("1");
  fire("2");
  core.changeReachability(1);
  core.onPostMessage = [](const Value::Map& body) {
    if (body.stringAt("eid") == "2") throw std::runtime_error("core full");
  };
  EXPECT_FALSE(fire("3"));
  EXPECT_THAT(logTexts(), Contains("Exception: core full"));
  EXPECT_THAT(posted("eid"), ElementsAre("1"));
  core.onPostMessage = nullptr;
  EXPECT_TRUE(fire("4"));
  EXPECT_THAT(posted("eid"), ElementsAre("1", "2", "3", "4"));
}

TEST_F(PostingTest, ACoreMayFireWhileItTakesAMessage) {
  core.onPostMessage = [&](const Value::Map& body) {
    if (body.stringAt("eid") != "outer") return;
    core.onPostMessage = nullptr;
    fire("inner");
  };
  EXPECT_TRUE(fire("outer"));
  EXPECT_THAT(posted("eid"), ElementsAre("outer", "inner"));
  EXPECT_EQ(module.vtTagsRingBuffer()->count(), 0U);
}

TEST_F(PostingTest, StringTagsTakeTheSameRoad) {
  auto tag = VTTag::tagWith("App", "123");
  tag.makeElementTag({.elementId = "e", .elementCategory = "c"});
  EXPECT_TRUE(module.postTagString(tag));
  EXPECT_THAT(posted("eid"), ElementsAre("e"));
  EXPECT_THAT(posted("ul"), ElementsAre("APP_APPLE_App"));
  Vantamo::setOptOut("opt_out");
  EXPECT_FALSE(module.postTagString(tag));
  EXPECT_EQ(core.messages.size(), 1U);
}

}  // namespace
}  // namespace vantamo::test

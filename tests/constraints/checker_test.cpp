#include "constraints/vt_constraints_checker.h"
#include "tests/kit/host_test.h"

namespace vantamo::test {
namespace {

using testing::ElementsAre;

std::string valueFailure(const std::string& name, const std::string& value) {
  return "Failed value constraint check for parameter:" + name + " and value:" + value;
}

TEST_F(HostTest, BuiltInLimitsHoldAndTellTheirViolations) {
  const std::string at256(256, 'x');
  const std::string over256 = at256 + "x";
  std::string pairs;  // 128 characters of two UTF-16 code units each
  for (int i = 0; i < 128; ++i) pairs += "\U0001F600";
  const Value::List fifty(50, at256);
  const Value::List fiftyOne(51, "a");
  using Row = std::tuple<Text, Value::Map, std::vector<std::string>>;
  const std::vector<Row> cases = {
      {"firePageView", {{"pageId", at256}, {"attributes", fifty}}, {}},
      {"firePageView", {{"pageId", pairs}}, {}},
      {"firePageView", {{"pageId", nullptr}, {"attributes", nullptr}}, {}},
      {"firePageView", {}, {}},
      {"firePageView",
       {{"pageId", over256}},
       {"Failed length constraint check for parameter:pageId and length:256"}},
      {"firePageView",
       {{"pageId", pairs + "x"}},
       {"Failed length constraint check for parameter:pageId and length:256"}},
      {"firePageView", {{"pageId", ""}, {"category", over256}}, {valueFailure("pageId", "")}},
      {"firePageView",
       {{"attributes", fiftyOne}, {"vqmmc", Value::List(16, "a")}},
       {"Failed count constraint check for parameter:attributes and count:50"}},
      // Inside a list a violation ends that list only.
      {"firePageView",
       {{"attributes", Value::List{over256, over256}}, {"vqmmc", Value::List(16, "a")}},
       {"Failed value constraint check for parameter:attributes and length:256",
        "Failed count constraint check for parameter:vqmmc and count:15"}},
      {"firePageView", {{"attributes", Value::List{"", "a"}}}, {}},
      {"fireShopAction5", {{"quantity", 123456789}}, {}},
      {"fireConversionEvent",
       {{"actionType", "12"}},
       {"Failed length constraint check for parameter:actionType and length:1"}},
      {"fireproductview", {{"pageId", over256}}, {}},
      {"", {}, {"Empty API name for constraints check"}},
      {nullptr, {}, {"Empty API name for constraints check"}},
  };
  for (const auto& [api, parameters, failures] : cases) {
    clearLog();
    const bool satisfied = VTConstraintsChecker::satisfy(parameters, api);
    EXPECT_EQ(logTexts(), failures);
    EXPECT_EQ(satisfied, api.absentOrEmpty() || failures.empty());
  }
}

TEST_F(HostTest, GivenLimitsAreFollowedInTheirOrder) {
  const Value::Map required = {{"required", 1}};
  const Value::Map unreadable = {{"length", "x"}};
  const Value::Map limits = {{"list", required}, {"text", required}, {"odd", unreadable}};
  const auto check = [&](const Value::Map& parameters) {
    clearLog();
    return VTConstraintsChecker::satisfy(parameters, limits);
  };
  EXPECT_FALSE(check({{"text", "ok"}, {"list", Value::List{"a", "", "b"}}}));
  EXPECT_THAT(logTexts(), ElementsAre(valueFailure("list", "")));
  EXPECT_FALSE(check({{"text", ""}, {"list", Value::List{""}}}));
  EXPECT_THAT(logTexts(), ElementsAre(valueFailure("list", ""), valueFailure("text", "")));

  EXPECT_FALSE(VTConstraintsChecker::satisfy(
      {{"a", Value::List{1, 2}}, {"b", "xx"}},
      Value::Map{{"a", Value::Map{{"count", 5}}}, {"b", Value::Map{{"length", 1}}}}));
  clearLog();
  const std::string long100001(100001, 'x');
  EXPECT_FALSE(VTConstraintsChecker::satisfy({{"b", long100001}},
                                             Value::Map{{"b", Value::Map{{"length", 100000}}}}));
  EXPECT_THAT(logTexts(), ElementsAre(testing::EndsWith(" and length:100000")));

  // What cannot be checked raises, is logged, and leaves the answer as it was by then.
  EXPECT_TRUE(check({{"list", Value::List{1}}, {"text", ""}}));
  EXPECT_THAT(logTexts(), ElementsAre(testing::StartsWith("Exception: ")));
  EXPECT_TRUE(check({{"odd", "x"}}));
  EXPECT_FALSE(check({{"list", Value::List{""}}, {"odd", "x"}}));
}

}  // namespace
}  // namespace vantamo::test

#include "tags/vt_message.h"

#include "tests/kit/module_test.h"

namespace vantamo::test {
TEST(QueryStringTest, ParsesWhatTheBuilderWrites) {
  const std::vector<std::pair<std::string, Value::Map>> cases = {
      {"", {}},
      {"&&", {}},
      {"a=1&a=2", {{"a", "2"}}},
      {"a=", {{"a", ""}}},
      {"=x&x&b=1", {{"b", "1"}}},
      {"a=b=c&d=1", {{"d", "1"}}},
      {"a=b?=c", {{"a", "b?=c"}}},
      {"?a=b", {{"?a", "b"}}},
      {"==?&=", {}},
      {"ul=APP_APPLE_App/?vq_mmc=X", {{"ul", "APP_APPLE_App/?vq_mmc=X"}}},
      {"a=%20+ &b=\u00e9", {{"a", "%20+ "}, {"b", "\u00e9"}}},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(tags::dictionaryWithQueryString(text), expected) << text;
  }
}

TEST(SafeSetObjectTest, AbsentValuesStayAsNullMarkers) {
  Value::Map map;
  tags::safeSetObject(map, std::nullopt, "a");
  tags::safeSetObject(map, Value(""), "b");
  ASSERT_NE(map.find("a"), nullptr);
  EXPECT_TRUE(map.find("a")->isNull());
  EXPECT_EQ(map.stringAt("b"), "");
}

TEST_F(ModuleTest, MessageMergesTheTagIntoTheBaseMessage) {
  core.baseMessage = {{"a", "base"}, {"z", 1}};
  EXPECT_EQ(VTMessage::initWithDictionary({})->jsonDictionary(), core.baseMessage);
  EXPECT_EQ(VTMessage::initWithQueryString(nullptr)->jsonDictionary(), core.baseMessage);
  const auto message = VTMessage::initWithQueryString("a=tag&b=2");
  const Value::Map expected = {{"a", "tag"}, {"z", 1}, {"b", "2"}};
  Value::Map first = message->jsonDictionary();
  first.set("a", "changed");
  EXPECT_EQ(message->jsonDictionary(), expected);

  const auto stored = [](const char* json) {
    return std::make_shared<const state::StoredTag>(
        state::StoredTag{state::StoredTag::Form::json, json});
  };
  const auto tagged = VTMessage::initWithTag(stored(R"({"a":"tag","b":"2"})"));
  EXPECT_EQ(tagged->jsonDictionary(), expected);
  EXPECT_FALSE(tagged->jsonText().present());  // it lacks what the core adds
  core.baseMessage = {};
  const auto ready = VTMessage::initWithTag(stored(R"({"a":"tag"})"));
  EXPECT_EQ(ready->jsonText().view(), R"({"a":"tag"})");
  EXPECT_EQ(ready->jsonDictionary(), (Value::Map{{"a", "tag"}}));
  ready->setDictionary(Value::Map{{"a", "other"}});
  EXPECT_FALSE(ready->jsonText().present());
  EXPECT_EQ(ready->jsonDictionary(), (Value::Map{{"a", "other"}}));
  core.baseMessage = {{"a", "base"}, {"z", 1}};

  VTMessage plain;
  EXPECT_FALSE(plain.dictionary());
  EXPECT_EQ(plain.jsonDictionary(), core.baseMessage);
  EXPECT_TRUE(plain.dictionary());
}

}  // namespace vantamo::test

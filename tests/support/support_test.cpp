#include "support/debug_log.h"

#include <array>

#include "support/guarded.h"
#include "support/json.h"
#include "support/settings_file.h"
#include "support/utf.h"
#include "tests/kit/host_test.h"

namespace vantamo::test {
using testing::AllOf;
using testing::HasSubstr;

TEST(UtfTest, EachIllFormedSequenceIsOneReplacement) {
  const std::string mark = "\uFFFD";
  const std::string overlong = "\xc0\x80";
  const std::string surrogate = "\xed\xa0\x80";
  const std::vector<std::array<std::string, 2>> cases = {{"abc", "abc"},
                                                         {"\xff", mark},
                                                         {"a\xe2\x82", "a" + mark},
                                                         {"\xe2\x82x", mark + "x"},
                                                         {overlong, mark},
                                                         {surrogate, mark},
                                                         {"\x80\xf5!", mark + mark + "!"}};
  for (const auto& [text, repaired] : cases) {
    EXPECT_EQ(support::wellFormedUtf8(text), repaired);
    EXPECT_EQ(support::utf16Length(text), support::utf16Length(repaired));
  }
  EXPECT_EQ(support::utf16Length(std::string_view("a\0\u00e9\u20ac\U0001F600", 11)), 6U);
  EXPECT_EQ(support::utf16Length("\xff\xff!"), 3U);
}

TEST(JsonTest, ReadsEveryKindAndWritesItBack) {
  const std::string text =
      R"({"n":null,"b":true,"i":-7,"r":1.5,"s":"a\u0000\"\u00e9","l":[1,[]],"m":{"x":{}}})";
  const Value value = support::parseJson(text);
  EXPECT_EQ(value.map().find("i")->number(), -7);
  EXPECT_EQ(value.map().stringAt("s")->size(), 5U);
  EXPECT_EQ(support::parseJson(support::writeJson(value)), value);
  EXPECT_EQ(support::parseJson("18446744073709551615").number(), 18446744073709551615.0);
  EXPECT_EQ(support::writeJson(support::parseJson(R"({"b":0,"a":1,"b":2,"c":3,"a":4,"b":5})")),
            R"({"b":5,"a":4,"c":3})");
  EXPECT_EQ(support::writeJson("\xff\xfe"), "\"\uFFFD\uFFFD\"");
  EXPECT_EQ(support::writeJson(Value::Map{{"\xff", Value::List{}}}), "{\"\uFFFD\":[]}");
}

TEST(JsonTest, RefusesWhatIsNotOneValueAndSaysWhere) {
  for (const std::string text :
       {"", "{", "[1,]", "{\"a\" 1}", "1 2", "\"\xff\"", "nul", "\"a\nb\"", "[1e999]"}) {
    EXPECT_THROW(static_cast<void>(support::parseJson(text)), support::JsonError) << text;
  }
  EXPECT_THROW(static_cast<void>(support::parseJson(std::string(1000000, '['))),
               support::JsonError);
  try {
    static_cast<void>(support::parseJson("{\n \"a\": 1,\n}"));
    FAIL();
  } catch (const support::JsonError& error) {
    EXPECT_THAT(error.what(), HasSubstr("line 3, column 1"));
  }
}

TEST(ValueTest, BooleanMeaningFollowsTheStoredKind) {
  const Value::List yes = {true, 2, -1, 0.5, "YES", "true", " \t+007", "-1", "00Y", "1x"};
  const Value::List no = {nullptr,
                          false,
                          0,
                          0.0,
                          "0",
                          "no",
                          "",
                          "  ",
                          "+-1",
                          "-0",
                          "on",
                          Value::List{1},
                          Value::Map{{"a", 1}}};
  for (const Value& value : yes) EXPECT_TRUE(value.booleanMeaning()) << support::writeJson(value);
  for (const Value& value : no) EXPECT_FALSE(value.booleanMeaning()) << support::writeJson(value);
}

TEST(ValueTest, ReadingAnotherKindNamesWhatIsThere) {
  const Value value = Value::List{};
  EXPECT_THROW(static_cast<void>(value.string()), ValueTypeError);
  EXPECT_THROW(static_cast<void>(value.number()), ValueTypeError);
  try {
    static_cast<void>(value.map());
  } catch (const ValueTypeError& error) {
    EXPECT_STREQ(error.what(), "expected map, found list");
  }
}

TEST_F(HostTest, SettingsFilesAreTakenWholeOrTheirProblemIsNamed) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      // content, part of its problem
      {"{}", ""},
      {"\xef\xbb\xbf{\"a\":1}", ""},
      {"", "line 1"},
      {"{\"a\":1,\n\"b\":}", "line 2"},
      {"[1]", "expected one JSON object, found list"},
      {std::string(300 * 1024, ' ') + "{}", "larger than 256 KiB"}};
  for (const auto& [content, problem] : cases) {
    writeSettings("X", content);
    const std::string folder = (bundle() / "X.bundle").string();
    const auto file = support::readSettingsFile(folder);
    EXPECT_EQ(file.problem.has_value(), !problem.empty()) << content.substr(0, 20);
    EXPECT_THAT(file.problem.value_or(folder + "/settings.json: "),
                AllOf(testing::StartsWith(folder + "/settings.json: "), HasSubstr(problem)));
    EXPECT_EQ(file.items.empty(), content.find("\"a\":1}") == std::string::npos);
  }
  EXPECT_FALSE(support::readSettingsFile((scratch() / "nowhere").string()).problem);
}

TEST_F(HostTest, DebugLogHasItsFrameAndTheLineOfThePlace) {
  support::debugLog("-[Some place:]", [] { return "text %@ 100%"; });
  const int line = __LINE__ - 1;
  EXPECT_EQ(rawLog().at(0), "\n~\nVantamo:\t{ -[Some place:] } { " + std::to_string(line) +
                                " } \n~~\ntext %@ 100%\n~~~\n\n");
  EXPECT_EQ(support::withValues("a %@ b %@ c", "%@", "2"), "a %@ b 2 c");
  EXPECT_EQ(support::withValue("\n%@\n", std::string_view("\n~\t\0\x7f\u00e9", 7)),
            "\n\\x0a~\\x09\\x00\\x7f\u00e9\n");
  const std::string head(997, 'a');
  EXPECT_EQ(support::withValue("%@", head + "bcd"), head + "bcd");
  EXPECT_EQ(support::withValue("%@", head + "\U0001F600"), head + "...");
  EXPECT_EQ(support::withValue("%@", head + "bc\u00e9"), head + "bc...");
}

TEST_F(HostTest, EachPlaceReadsTheLevelOnce) {
  const std::vector<std::pair<const char*, int>> levels = {
      {"0", 0}, {"", 0}, {"yes", 0}, {"-1", -1}, {"2x", 2}, {" 3", 3}, {"99999999999999", INT_MAX}};
  for (const auto& [text, level] : levels) {
    setenv("VANTAMO_DEBUG", text, 1);
    EXPECT_EQ(support::debugLevelFromEnvironment(), level);
  }
  const auto place = [] { support::debugLog("-[A b]", [] { return "x"; }); };
  setenv("VANTAMO_DEBUG", "0", 1);
  place();
  setenv("VANTAMO_DEBUG", "1", 1);
  place();
  EXPECT_TRUE(rawLog().empty());
  unsetenv("VANTAMO_DEBUG");
  EXPECT_EQ(support::debugLevelFromEnvironment(), 0);
}

TEST_F(HostTest, GuardedBlockKeepsTheResultReachedSoFar) {
  const int reached = support::guarded("-[A b]", 1, [](int& result) {
    result = 2;
    throw std::runtime_error("why");
  });
  EXPECT_EQ(reached, 2);
  EXPECT_THAT(logTexts(), testing::ElementsAre("Exception: why"));
  EXPECT_THROW(support::guarded("-[A b]", [] { throw 7; }), int);
  // A sink that throws harms nobody.
  overrides.logSink = [](std::string_view) { throw std::runtime_error("sink"); };
  setPlatformOverrides(overrides);
  EXPECT_NO_THROW(support::debugLog("-[A b]", [] { return "x"; }));
  EXPECT_NO_THROW(support::debugLog("-[A b]", []() -> std::string { throw std::bad_alloc(); }));
}

}  // namespace vantamo::test

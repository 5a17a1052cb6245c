// One suite over both builders: the same events, told once, in both forms.

#include <functional>

#include "platform/sha1.h"
#include "state/vt_mod_session.h"
#include "state/vt_tags_ring_buffer.h"
#include "support/json.h"
#include "tags/vt_message.h"
#include "tags/vt_tag.h"
#include "tags/vt_tag_dictionary.h"
#include "tests/kit/host_test.h"

namespace vantamo::test {
namespace {

using tags::JoinedImpression;
using tags::JoinedPageView;

using namespace std::string_literals;

std::string numbered(const std::string& stem, int count) {
  std::string text;
  for (int i = 1; i <= count; ++i) text += "&" + stem + std::to_string(i) + "=v";
  return text;
}

const std::vector<std::string> fiftyOne(51, "v");

// What an event is in a query string, between "ec=UTF-8&" and "&cjen=1", and which keys the map
// form has otherwise: an empty value stands for a key that the map lacks.
struct Case {
  std::string name;
  std::function<bool(VTTag&)> makeString;
  std::function<bool(VTTagDictionary&)> makeMap;
  std::string partial;
  Value::Map mapDiffers = {};
};

template <class Event>
Case testCase(std::string name, const Event& event,
              std::type_identity_t<bool (VTTag::*)(const Event&)> makeString,
              std::type_identity_t<bool (VTTagDictionary::*)(const Event&)> makeMap,
              std::string partial, Value::Map mapDiffers = {}) {
  return {std::move(name), [=](VTTag& tag) { return (tag.*makeString)(event); },
          [=](VTTagDictionary& tag) { return (tag.*makeMap)(event); }, std::move(partial),
          std::move(mapDiffers)};
}

#define CASE(NAME, OPERATION, EVENT, ...) \
  testCase(NAME, EVENT, &VTTag::OPERATION, &VTTagDictionary::OPERATION, __VA_ARGS__)

constexpr const char* emptyDigest = "&ha1=da39a3ee5e6b4b0d3255bfef95601890afd80709";
const std::vector<std::string> none;
const std::vector<std::string> ab = {"a", "", "b"};
const std::vector<std::string> xy = {"x", "y"};

std::vector<Case> cases() {
  const std::string ul = "&ul=APP_APPLE_App";
  return {
      CASE("page view", makePageViewTag, (JoinedPageView{.pageId = "Home", .category = "Main"}),
           "tid=1&pi=Home&cg=Main" + ul),
      CASE("page view without category", makePageViewTag, JoinedPageView{.pageId = "Home"},
           "tid=1&pi=Home&cg=(null)" + ul, {{"cg", ""}}),
      CASE("search term alone", makePageViewTag,
           (JoinedPageView{.pageId = "p", .category = "c", .searchTerm = "s"}),
           "tid=1&pi=p&cg=c" + ul),
      CASE("search, marketing code and attributes", makePageViewTag,
           (JoinedPageView{"p", "c", "", "7", ab, "X"}),
           "tid=1&pi=p&cg=c&se=&sr=7&ul=APP_APPLE_App/?vq_mmc=X&pv_a1=a&pv_a2=&pv_a3=b"),
      CASE("technical properties", makeTechnicalPropertiesTag, JoinedPageView{.attributes = xy},
           "tid=6&pc=Y&pd=24&sw=320&sh=568&pi=(null)&cg=(null)&pv_a1=x&pv_a2=y" + ul),
      CASE("product view, 51 attributes", makeProductViewTag,
           (ProductView{"p", "1", "n", "c", fiftyOne}),
           "tid=5&pi=p&pr=1&pm=n&cg=c" + numbered("pr_a", 50) + ul),
      CASE("shop action 5", makeShopAction5Tag, (ShopAction5{"1", "n", "2", "3", "c", "EUR", xy}),
           "tid=4&at=5&pr=1&pm=n&qt=2&bp=3&cg=c&cc=EUR&s_a1=x&s_a2=y&ha1=" +
               platform::sha1Hex("x-_-y") + ul),
      CASE("shop action 5, empty list", makeShopAction5Tag,
           (ShopAction5{"1", "n", "2", "3", "c", "EUR", none}),
           "tid=4&at=5&pr=1&pm=n&qt=2&bp=3&cg=c&cc=EUR" + std::string(emptyDigest) + ul),
      CASE("shop action 9, absent list", makeShopAction9Tag,
           (ShopAction9{"1", "n", "2", "3", "c", "o", "4", "d", "EUR"}),
           "tid=4&at=9&pr=1&pm=n&qt=2&bp=3&cg=c&on=o&tr=4&cd=d&cc=EUR" + ul),
      CASE("order", makeOrderTag, (Order{"o", "1", "2", "d", "t", "s", "z", "EUR", xy}),
           "tid=3&on=o&tr=1&sg=2&cd=d&ct=t&sa=s&zp=z&cc=EUR&o_a1=x&o_a2=y" + ul),
      CASE("registration", makeRegistrationTag, (Registration{"d", "m", "t", "s", "z", "DE", xy}),
           "tid=2&cd=d&em=m&ct=t&sa=s&zp=z&rg1=x&rg2=y" + ul, {{"cy", "DE"}}),
      CASE("element", makeElementTag, (Element{"e", "c", xy}),
           "tid=15&eid=e&ecat=c&pflg=0&e_a1=x&e_a2=y" + ul),
      CASE("conversion event", makeConversionEventTag, (ConversionEvent{"e", "1", "c", "9", xy}),
           "tid=14&cid=e&cat=1&ccid=c&cpt=9&c_a1=x&c_a2=y" + ul),
      CASE("link click", makeLinkClickTag, (LinkClick{.linkName = "n"}),
           "tid=8&ti=NOW&pi=(null)&hr=(null)&nm=n" + ul, {{"pi", ""}, {"hr", ""}}),
      CASE("impression", makeImpressionTag, JoinedImpression{.pageId = "p"}, "tid=9&pi=p" + ul),
      CASE("impression with real estate", makeImpressionTag,
           (JoinedImpression{.pageId = "p", .vqre = ""}), "tid=9&pi=p&vq_re=" + ul),
      CASE("ill-formed text and a NUL", makeElementTag,
           (Element{std::string_view("a\0b", 3), "\xff\xfe!"}),
           "tid=15&eid=a\0b&ecat=\uFFFD\uFFFD!&pflg=0"s + ul),
  };
}

class TagFormatTest : public HostTest {
 protected:
  TagFormatTest() {
    overrides.screenSize = ScreenSize{320, 568.5};
    setPlatformOverrides(overrides);
    VTTagsRingBuffer::sharedInstance().setFirstPageView(false);
  }

  static std::string visitor() { return VTModSession::sharedInstance().visitorId(); }
  static std::string session() { return *VTModSession::sharedInstance().cjsid(); }

  // Times differ from run to run: both stand for themselves as NOW, once seen to be whole seconds.
  static std::string withoutTimes(std::string tag) {
    for (const std::string key : {"&st=", "&ti="}) {
      const std::size_t at = tag.find(key);
      if (at == std::string::npos) continue;
      const std::size_t end = std::min(tag.find('&', at + 1), tag.size());
      const std::string time = tag.substr(at + 4, end - at - 4);
      EXPECT_LE(std::abs(std::stod(time) - static_cast<double>(std::time(nullptr))), 60);
      EXPECT_EQ(time.find_first_not_of("0123456789"), std::string::npos);
      tag.replace(at + 4, time.size(), "NOW");
    }
    return tag;
  }
};

TEST_F(TagFormatTest, EveryEventInBothForms) {
  for (const Case& test : cases()) {
    SCOPED_TRACE(test.name);
    auto tag = VTTag::tagWith("App", "123");
    EXPECT_EQ(tag.tag(), "");
    EXPECT_TRUE(test.makeString(tag));
    EXPECT_EQ(withoutTimes(tag.tag()), "ci=123&vn2=e4.0&st=NOW&vn1=4.1.8&ec=UTF-8&" + test.partial +
                                           "&cjen=1&cjuid=" + visitor() + "&cjsid=" + session() +
                                           "&cjvf=1");

    // Read back, the string form is the map form, but for the keys named with the case.
    auto builder = VTTagDictionary::tagWithApplicationName("App", "123");
    EXPECT_TRUE(test.makeMap(builder));
    Value::Map expected = tags::dictionaryWithQueryString(tag.tag());
    for (const auto& [key, value] : test.mapDiffers) {
      value.string().empty() ? expected.erase(key) : expected.set(key, value);
    }
    Value::Map built = builder.tagDictionary();
    for (const char* time : {"st", "ti"}) {
      if (expected.find(time) != nullptr) built.set(time, *expected.find(time));
    }
    EXPECT_EQ(built, expected) << tag.tag();
  }
}

TEST_F(TagFormatTest, AbsentNamesPrintOrDropOut) {
  VTTag tag;
  tag.makeElementTag({.elementId = "e"});
  EXPECT_EQ(withoutTimes(tag.tag()).find("ci=(null)&vn2"), 0U);
  EXPECT_NE(tag.tag().find("&ul=APP_APPLE_(null)&"), std::string::npos);
  VTTagDictionary builder;
  builder.makeElementTag({.elementId = "e"});
  EXPECT_EQ(builder.tagDict().find("ci"), nullptr);
  EXPECT_EQ(builder.tagDict().stringAt("ul"), "APP_APPLE_(null)");
}

TEST_F(TagFormatTest, OnlyTheStringFormLooksForLocationInsideValues) {
  const std::vector<std::string> tricky = {"x&ul=y"};
  auto tag = VTTag::tagWith("App", "123");
  tag.makeElementTag({"e", "c", tricky});
  EXPECT_EQ(tag.tag().find("ul=APP_APPLE"), std::string::npos);
  auto builder = VTTagDictionary::tagWithApplicationName("App", "123");
  builder.makeElementTag({"e", "c", tricky});
  EXPECT_EQ(builder.tagDict().stringAt("ul"), "APP_APPLE_App");
}

TEST_F(TagFormatTest, FirstPageViewBecomesTechnicalPropertiesOnce) {
  VTTagsRingBuffer& buffer = VTTagsRingBuffer::sharedInstance();
  buffer.setFirstPageView(true);
  std::vector<std::string> codes;
  for (int i = 0; i < 2; ++i) {
    auto builder = VTTagDictionary::tagWithApplicationName("App", "123");
    builder.makePageViewTag({.pageId = "p"});
    codes.emplace_back(*builder.tagDict().stringAt("tid"));
  }
  EXPECT_THAT(codes, testing::ElementsAre("6", "1"));
  EXPECT_FALSE(buffer.firstPageView());
}

TEST_F(TagFormatTest, AMapBuilderThatIsUsedOnAddsToItsMap) {
  auto builder = VTTagDictionary::tagWithApplicationName("App", "123");
  builder.makeElementTag({.elementId = "e", .elementCategory = "\"\\\n\xff"});
  EXPECT_EQ(support::parseJson(VTTagDictionary(builder).json()).map(), builder.tagDict());
  const Value::Map first = builder.tagDictionary();
  builder.makeProductViewTag({.pageId = "p", .productId = "1", .productName = "n"});
  EXPECT_EQ(first.stringAt("tid"), "15");
  EXPECT_EQ(builder.tagDict().stringAt("tid"), "5");
  EXPECT_EQ(builder.tagDict().stringAt("eid"), "e");
  EXPECT_EQ(support::parseJson(VTTagDictionary(builder).json()).map(), builder.tagDict());
  builder.setTagDict({{"ul", "there"}});
  builder.buildFinalDictionary();
  EXPECT_EQ(builder.tagDict().stringAt("ul"), "there");
  EXPECT_EQ(builder.tagDict().find("tid"), nullptr);
}

TEST_F(TagFormatTest, ScreenLengthsAreTruncatedIntegers) {
  const std::vector<std::pair<double, std::string>> lengths = {
      {0, "0"}, {-3.9, "-3"}, {1e300, "0"}, {std::nan(""), "0"}, {2147483647.5, "2147483647"}};
  for (const auto& [points, text] : lengths) {
    overrides.screenSize = ScreenSize{points, 1};
    setPlatformOverrides(overrides);
    VTTagDictionary builder;
    builder.makeTechnicalPropertiesTag({.pageId = "p"});
    EXPECT_EQ(builder.tagDict().stringAt("sw"), text);
  }
}

TEST_F(TagFormatTest, AttributeHelpers) {
  EXPECT_EQ(VTTag::makeAttributeStringFrom({"a", ""}, 2), "&rg1=a&rg2=");
  EXPECT_EQ(VTTag::makeAttributeStringFrom({"a"}, 77), "&_a1=a");
  EXPECT_EQ(VTTagDictionary::attributesDictionaryFrom({"a"}, 6), (Value::Map{{"pv_a1", "a"}}));
  EXPECT_EQ(VTTag::sha1From(""), emptyDigest);
  EXPECT_EQ("&ha1=" + VTTagDictionary::sha1From(nullptr), emptyDigest);
  EXPECT_EQ(VTTag::stringFromAttributesArray({"a", "", "b"}), "a-_--_-b");
  EXPECT_THAT(VTTag::arrayFromAttributesString("a-_--_-b"), testing::ElementsAre("a", "", "b"));
  EXPECT_THAT(VTTag::arrayFromAttributesString("-_-"), testing::ElementsAre("", ""));
  EXPECT_TRUE(VTTag::arrayFromAttributesString("").empty());
  EXPECT_TRUE(VTTag::arrayFromAttributesString(nullptr).empty());
}

}  // namespace
}  // namespace vantamo::test

// Holds docs/clickhouse.sql to what the library sends: a receiver passes over keys that it does not
// know, so a key without a column would be lost in silence.

#include <regex>
#include <set>

#include "tags/event_formats.h"
#include "tests/kit/module_test.h"

namespace vantamo::test {
namespace {

class ReceiverSchemaTest : public ModuleTest {
 protected:
  template <class Event>
  void fireWithEverything(bool (*fire)(const Event&), const tags::EventFormat<Event>& format) {
    static const std::vector<std::string> fiftyOne(51, "v");
    Event event;
    for (const auto& field : format.fields) {
      if (field.text != nullptr) {
        event.*field.text = "v";
      } else {
        event.*field.list = fiftyOne;
      }
    }
    fire(event);
  }

  std::set<std::string> sentKeys() {
    std::set<std::string> keys;
    for (const Value::Map& body : bodies()) {
      for (const auto& [key, value] : body) keys.insert(key);
    }
    return keys;
  }

  static std::set<std::string> columnsOfArrivals() {
    std::ifstream file(VANTAMO_SOURCE_DIR "/docs/clickhouse.sql");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const std::size_t begin = text.find("vantamo.tags_in (");
    const std::string table = text.substr(begin, text.find("ENGINE", begin) - begin);
    const std::regex column("[`\n ](\\w+)`? (?:String|Nullable)");
    std::set<std::string> columns;
    for (std::sregex_iterator at(table.begin(), table.end(), column), end; at != end; ++at) {
      columns.insert((*at)[1]);
    }
    return columns;
  }
};

TEST_F(ReceiverSchemaTest, EveryKeyThatIsSentHasAColumnAndEveryColumnAKey) {
  ASSERT_TRUE(Vantamo::startup());
  for (int i = 0; i < 2; ++i) {  // the first one goes out as technical properties
    fireWithEverything(&Vantamo::firePageView, tags::pageViewFormat);
  }
  fireWithEverything(&Vantamo::fireProductview, tags::productViewFormat);
  fireWithEverything(&Vantamo::fireShopAction5, tags::shopAction5Format);
  fireWithEverything(&Vantamo::fireShopAction9, tags::shopAction9Format);
  fireWithEverything(&Vantamo::fireOrder, tags::orderFormat);
  fireWithEverything(&Vantamo::fireRegistration, tags::registrationFormat);
  fireWithEverything(&Vantamo::fireElement, tags::elementFormat);
  fireWithEverything(&Vantamo::fireConversionEvent, tags::conversionEventFormat);
  fireWithEverything(&Vantamo::fireLinkClick, tags::linkClickFormat);
  fireWithEverything(&Vantamo::fireImpression, tags::impressionFormat);
  EXPECT_EQ(core.messages.size(), 11U);
  EXPECT_THAT(sentKeys(), testing::ContainerEq(columnsOfArrivals()));
}

}  // namespace
}  // namespace vantamo::test

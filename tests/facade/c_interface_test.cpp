// The facade as C sees it, over the recording core.

#include <pthread.h>

#include <cstring>
#include <thread>

#include "tags/event_formats.h"
#include "tests/kit/module_test.h"
#include "vantamo/vantamo_c.h"

namespace vantamo::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

// Both fronts of an event.
template <class Event>
using Fire = bool (*)(const Event&);
template <class Struct>
using FireC = bool (*)(const Struct*);

template <class Event, class Struct>
struct Fronts {
  const tags::EventFormat<Event>& format;
  Fire<Event> fire;
  FireC<Struct> fireC;
};

template <class Visitor>
void forEachFront(Visitor visitor) {
  const auto both = [&]<class Event, class Struct>(const tags::EventFormat<Event>& format,
                                                   Fire<Event> fire, FireC<Struct> fireC) {
    visitor(Fronts<Event, Struct>{format, fire, fireC});
  };
  both(tags::pageViewFormat, &Vantamo::firePageView, &vantamo_fire_page_view);
  both(tags::productViewFormat, &Vantamo::fireProductview, &vantamo_fire_product_view);
  both(tags::shopAction5Format, &Vantamo::fireShopAction5, &vantamo_fire_shop_action5);
  both(tags::shopAction9Format, &Vantamo::fireShopAction9, &vantamo_fire_shop_action9);
  both(tags::orderFormat, &Vantamo::fireOrder, &vantamo_fire_order);
  both(tags::registrationFormat, &Vantamo::fireRegistration, &vantamo_fire_registration);
  both(tags::elementFormat, &Vantamo::fireElement, &vantamo_fire_element);
  both(tags::conversionEventFormat, &Vantamo::fireConversionEvent, &vantamo_fire_conversion_event);
  both(tags::linkClickFormat, &Vantamo::fireLinkClick, &vantamo_fire_link_click);
  both(tags::impressionFormat, &Vantamo::fireImpression, &vantamo_fire_impression);
}

// A value of its own for each argument of each event.
struct Values {
  std::string text;
  std::vector<const char*> list;

  template <class Event>
  Values(const tags::EventFormat<Event>& format, const tags::Field<Event>& field)
      : text(std::string(format.name).append(".").append(field.argument)),
        list{text.c_str(), nullptr, "last"} {}
};

class CInterfaceTest : public ModuleTest {
 protected:
  // What was posted since the last call, but for the time.
  std::vector<Value::Map> take() {
    std::vector<Value::Map> taken = bodies();
    for (Value::Map& body : taken) {
      body.erase("st");
      body.erase("ti");
    }
    core.messages.clear();
    return taken;
  }

  // Fires the first `given` arguments of the table through both fronts, into C at the place that
  // the table's order gives them, and with the others set past the end of what `size` tells of.
  template <class Event, class Struct>
  void compare(const Fronts<Event, Struct>& fronts, std::size_t given) {
    std::vector<Values> values;
    for (const auto& field : fronts.format.fields) values.emplace_back(fronts.format, field);
    Event event;
    Struct structure;
    std::vector<std::byte> bytes(sizeof(std::size_t));
    const auto append = [&](const auto& member) {
      const auto* data = reinterpret_cast<const std::byte*>(&member);
      bytes.insert(bytes.end(), data, data + sizeof(member));
    };
    std::size_t size = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
      const auto& field = fronts.format.fields[i];
      if (field.text != nullptr) append(values[i].text.c_str());
      if (field.list != nullptr) append(vantamo_list{values[i].list.data(), 3});
      if (i >= given) continue;
      if (field.text != nullptr) event.*field.text = values[i].text;
      if (field.list != nullptr) event.*field.list = values[i].list;
      size = bytes.size();
    }
    ASSERT_EQ(bytes.size(), sizeof(Struct)) << fronts.format.name;
    std::memcpy(&structure, bytes.data(), sizeof(Struct));
    structure.size = size;
    const bool answer = fronts.fire(event);
    const auto expected = take();
    EXPECT_EQ(fronts.fireC(&structure), answer) << fronts.format.name << given;
    EXPECT_EQ(take(), expected) << fronts.format.name << given;
    EXPECT_TRUE(given < values.size() || expected.size() == 1) << fronts.format.name;
  }
};

// Driven by the table: every argument, alone at its place, in the struct of this version and in
// those of callers that know fewer members.
TEST_F(CInterfaceTest, EveryFieldOfEveryEventIsTheOneOfTheTable) {
  ASSERT_TRUE(vantamo_startup());
  Vantamo::firePageView({.pageId = "the first reports the device"});
  take();
  std::size_t events = 0;
  forEachFront([&]<class Event, class Struct>(const Fronts<Event, Struct>& fronts) {
    ++events;
    for (std::size_t given = 1; given <= fronts.format.fields.size(); ++given) {
      compare(fronts, given);
    }
  });
  tags::forEachEvent([&](const auto&) { --events; });
  EXPECT_EQ(events, 0U);
}

TEST_F(CInterfaceTest, AStructOfNoVersionIsRefusedAndOneOfALaterVersionTaken) {
  ASSERT_TRUE(vantamo_startup());
  forEachFront([&]<class Event, class Struct>(const Fronts<Event, Struct>& fronts) {
    EXPECT_FALSE(fronts.fireC(nullptr)) << fronts.format.name;
    // Nothing but the size may be looked at.
    auto garbage = std::make_unique<Struct>();
    std::memset(garbage.get(), 0xEE, sizeof(Struct));
    for (const std::size_t size : std::initializer_list<std::size_t>{
             0, 1, sizeof(std::size_t), sizeof(Struct) - 1, ~std::size_t{7}}) {
      garbage->size = size;
      EXPECT_FALSE(fronts.fireC(garbage.get())) << fronts.format.name << size;
    }
  });
  EXPECT_TRUE(take().empty());
  EXPECT_THAT(log(),
              Contains(testing::AllOf(testing::Field(&LogEntry::operation, "vantamo_fire_element"),
                                      testing::Field(&LogEntry::text,
                                                     "The struct's size is that of no version: "
                                                     "0"))));
  struct {
    vantamo_element known = VANTAMO_INIT(vantamo_element);
    const char* later = "unknown";
  } newer;
  newer.known.size = sizeof(newer);
  newer.known.elementId = "e";
  newer.known.attributes.count = 7;  // without entries: an absent list
  EXPECT_TRUE(vantamo_fire_element(&newer.known));
  EXPECT_EQ(take().at(0).find("e_a1"), nullptr);
}

TEST_F(CInterfaceTest, StringsAreHandedOutAndGivenBack) {
  const auto asked = [](char* (*ask)()) {
    char* text = ask();
    const std::optional<std::string> copy = Text(text).copy();
    vantamo_free(text);
    return copy;
  };
  EXPECT_EQ(asked(&vantamo_session_id), "");
  ASSERT_TRUE(vantamo_startup());
  EXPECT_FALSE(vantamo_startup());
  EXPECT_EQ(asked(&vantamo_session_id), Vantamo::sessionId());
  EXPECT_EQ(asked(&vantamo_visitor_id), Vantamo::visitorId());
  EXPECT_EQ(asked(&vantamo_library_version), Vantamo::libraryVersion());
  EXPECT_TRUE(vantamo_start_new_session());
  EXPECT_EQ(asked(&vantamo_get_prw_advertising_id), std::nullopt);
  EXPECT_TRUE(vantamo_set_prw_advertising_id("ad"));
  EXPECT_EQ(asked(&vantamo_get_prw_advertising_id), "ad");
  EXPECT_TRUE(vantamo_set_prw_advertising_id(nullptr));
  EXPECT_EQ(asked(&vantamo_get_prw_advertising_id), std::nullopt);
  EXPECT_TRUE(vantamo_set_opt_out("anonymous"));
  EXPECT_FALSE(vantamo_set_opt_out(nullptr));
  EXPECT_EQ(asked(&vantamo_get_opt_out), "opt_in");
  EXPECT_TRUE(vantamo_activate_client_id("9"));
  EXPECT_TRUE(Vantamo::fireElement({.elementId = "e"}));
  EXPECT_TRUE(vantamo_reset_to_default_client_id());
  EXPECT_TRUE(Vantamo::fireElement({.elementId = "e"}));
  EXPECT_THAT(posted("ci"), testing::ElementsAre("9", "123"));
  EXPECT_TRUE(vantamo_shutdown());
  EXPECT_FALSE(vantamo_shutdown());
  vantamo_free(nullptr);
}

TEST_F(CInterfaceTest, NothingThatTheCoreThrowsCrosses) {
  ASSERT_TRUE(vantamo_startup());
  auto element = VANTAMO_INIT(vantamo_element);
  element.elementId = "e";
  const auto fails = [&](auto thrown, const char* told) {
    core.onPostMessage = [=](const Value::Map&) { throw thrown; };
    EXPECT_FALSE(vantamo_fire_element(&element));
    EXPECT_THAT(logTexts(), Contains(HasSubstr(told)));
  };
  fails(std::runtime_error("broken"), "Exception: broken");
  fails(7, "Exception: not a std::exception");
  // These two hand the core's exceptions on in C++.
  core.onAdvertisingId = [] { throw std::runtime_error("no id"); };
  EXPECT_THROW(Vantamo::getPRWAdvertisingId(), std::runtime_error);
  EXPECT_FALSE(vantamo_set_prw_advertising_id("ad"));
  EXPECT_EQ(vantamo_get_prw_advertising_id(), nullptr);
  EXPECT_THAT(logTexts(), Contains("Exception: no id"));
}

// Unwinding a cancelled thread through the library would end the process.
TEST_F(CInterfaceTest, ACancelledThreadIsOutOfItsCallFirst) {
  ASSERT_TRUE(vantamo_startup());
  core.onPostMessage = [](const Value::Map&) {
    pthread_cancel(pthread_self());
    pthread_testcancel();
  };
  std::thread([] {
    auto element = VANTAMO_INIT(vantamo_element);
    element.elementId = "e";
    const bool fired = vantamo_fire_element(&element);
    int state = -1;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE);
    EXPECT_TRUE(fired);
  }).join();
}

struct Sink {
  std::vector<std::string> lines;
  int released = 0;
  vantamo_log_sink sink{.write =
                            [](void* context, const char* text) {
                              static_cast<Sink*>(context)->lines.emplace_back(text);
                              throw std::runtime_error("a sink must not throw");
                            },
                        .context = this,
                        .release =
                            [](void* context) {
                              ++static_cast<Sink*>(context)->released;
                              throw 7;
                            }};
};

TEST_F(CInterfaceTest, OverridesAreTakenOverAndTheirContextReleasedOnce) {
  Sink first;
  Sink refused;
  const std::string caches = this->caches().string();
  auto given = VANTAMO_INIT(vantamo_platform_overrides);
  given.cachesDirectory = caches.c_str();
  given.screenSize = {.present = true, .width = 390, .height = 844};
  given.deviceIdiom = VANTAMO_DEVICE_IDIOM_TABLET;
  given.systemVersion = "7.1";
  given.logSink = first.sink;
  EXPECT_TRUE(vantamo_set_platform_overrides(&given));
  ASSERT_TRUE(vantamo_startup());
  EXPECT_THAT(first.lines, Contains(HasSubstr("Starting Vantamo SDK Version")));
  EXPECT_TRUE(std::filesystem::exists(caches + "/VTSessions/VTSessions.json"));
  Vantamo::firePageView({.pageId = "p"});
  EXPECT_EQ(bodies().at(0).stringAt("sw"), "390");
  const auto headers =
      core.module("VTMod")->httpHeadersForSessionId(Vantamo::sessionId(), R"({"tid":"6"})");
  EXPECT_EQ(headers.stringAt("VT-DeviceType"), "TABLET");
  EXPECT_EQ(headers.stringAt("VT-OSVersion"), "7.1");

  given.logSink = refused.sink;
  given.deviceIdiom = 7;
  EXPECT_FALSE(vantamo_set_platform_overrides(&given));
  EXPECT_THAT(first.lines, Contains(HasSubstr("No such device idiom: 7")));
  EXPECT_EQ(refused.released, 1);
  EXPECT_EQ(first.released, 0);
  EXPECT_FALSE(vantamo_set_platform_overrides(nullptr));
  vantamo_shutdown();
  given = VANTAMO_INIT(vantamo_platform_overrides);
  EXPECT_TRUE(vantamo_set_platform_overrides(&given));
  EXPECT_EQ(first.released, 1);
  EXPECT_THAT(refused.lines, IsEmpty());
}

}  // namespace
}  // namespace vantamo::test

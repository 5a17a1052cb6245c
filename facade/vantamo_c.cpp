// The facade and the platform overrides for C. What a C struct of an event must look like is told
// by the event's table; a struct that differs does not compile.

#include "vantamo/vantamo_c.h"

#include <array>
#include <cstddef>
#include <span>
#include <type_traits>

#include "support/c_interface.h"
#include "tags/event_formats.h"
#include "vantamo/platform.h"
#include "vantamo/vantamo.h"

namespace support = vantamo::support;
namespace tags = vantamo::tags;
using vantamo::PlatformOverrides;

namespace {

// The member's name, as the compiler spells it: "... member = &vantamo_order::orderId]".
template <auto member>
constexpr std::string_view nameOf() {
  std::string_view name = __PRETTY_FUNCTION__;
  name.remove_prefix(name.find("::", name.find("member = ")) + 2);
  return name.substr(0, name.find_first_of(";]"));
}

// What tells the member at one place from those at the others.
constexpr std::array<char, 16> places{};
template <class Member>
constexpr Member markOf(std::size_t place) {
  if constexpr (std::is_same_v<Member, vantamo_list>) {
    return {nullptr, place};
  } else {
    return &places.at(place);
  }
}
constexpr bool same(const char* a, const char* b) { return a == b; }
constexpr bool same(vantamo_list a, vantamo_list b) { return a.count == b.count; }

// Whether these are all the members after `size`, in the order in which they are declared.
template <class Struct, class... Members>
constexpr bool areAllInOrder(Members Struct::*... members) {
  std::size_t place = 0;
  const Struct marked{sizeof(Struct), markOf<Members>(place++)...};
  place = 0;
  return sizeof(Struct) == sizeof(std::size_t) + (sizeof(Members) + ...) &&
         (same(marked.*members, markOf<Members>(place++)) && ...);
}

template <class Event, class Struct>
constexpr bool isOfKind(const tags::Field<Event>& field, const char* Struct::*) {
  return field.text != nullptr;
}
template <class Event, class Struct>
constexpr bool isOfKind(const tags::Field<Event>& field, vantamo_list Struct::*) {
  return field.list != nullptr;
}

template <class Event>
void take(Event& event, const tags::Field<Event>& field, const char* text) {
  event.*field.text = text;
}
template <class Event>
void take(Event& event, const tags::Field<Event>& field, const vantamo_list& list) {
  if (list.entries != nullptr) event.*field.list = std::span(list.entries, list.count);
}

template <const auto& format, auto... members, class Struct, class Event>
bool fire(const char* operation, const Struct* given, bool (*fireEvent)(const Event&)) {
  static_assert(sizeof...(members) == format.fields.size(), "a member for each row of the table");
  static_assert(areAllInOrder(members...), "the members of the struct, all and in order");
  static_assert([](auto field) { return ((nameOf<members>() == (field++)->argument) && ...); }(
                    format.fields.begin()),
                "the members' names are those of the table");
  static_assert(
      [](auto field) { return (isOfKind(*field++, members) && ...); }(format.fields.begin()),
      "texts and lists are where the table has them");
  return support::calledFromC(operation, false, [&](bool& result) {
    const auto known = support::knownPart(operation, given);
    if (!known) return;
    Event event;
    auto field = format.fields.begin();
    (take(event, *field++, (*known).*members), ...);
    result = fireEvent(event);
  });
}

bool answer(const char* operation, bool (*ask)()) {
  return support::calledFromC(operation, false, [&](bool& result) { result = ask(); });
}
bool answer(const char* operation, bool (*ask)(vantamo::Text), const char* text) {
  return support::calledFromC(operation, false, [&](bool& result) { result = ask(text); });
}
char* text(const char* operation, std::string (*ask)()) {
  return support::calledFromC<char*>(operation, nullptr,
                                     [&](char*& result) { result = support::handedOut(ask()); });
}

bool takeIdiom(const char* operation, PlatformOverrides& taken, vantamo_device_idiom idiom) {
  switch (idiom) {
    case VANTAMO_DEVICE_IDIOM_ABSENT: return true;
    case VANTAMO_DEVICE_IDIOM_PHONE: taken.deviceIdiom = vantamo::DeviceIdiom::phone; return true;
    case VANTAMO_DEVICE_IDIOM_TABLET: taken.deviceIdiom = vantamo::DeviceIdiom::tablet; return true;
    default:
      support::debugLog(operation, [&] {
        return support::withValue("No such device idiom: %@", std::to_string(idiom));
      });
      return false;
  }
}

// A member that is added later must lie past the size that callers write today: in padding at the
// end it would count as one that they know. areAllInOrder() sees to this for the events.
static_assert(offsetof(vantamo_platform_overrides, logSink) + sizeof(vantamo_log_sink) ==
              sizeof(vantamo_platform_overrides));

}  // namespace

void vantamo_free(char* text) { std::free(text); }

bool vantamo_startup() { return answer(__func__, &Vantamo::startup); }
bool vantamo_start_new_session() { return answer(__func__, &Vantamo::startNewSession); }
bool vantamo_shutdown() { return answer(__func__, &Vantamo::shutdown); }

char* vantamo_session_id() { return text(__func__, &Vantamo::sessionId); }
char* vantamo_visitor_id() { return text(__func__, &Vantamo::visitorId); }
char* vantamo_library_version() { return text(__func__, &Vantamo::libraryVersion); }
char* vantamo_get_opt_out() { return text(__func__, &Vantamo::getOptOut); }

bool vantamo_set_prw_advertising_id(const char* advertisingId) {
  return answer(__func__, &Vantamo::setPRWAdvertisingId, advertisingId);
}
char* vantamo_get_prw_advertising_id() {
  return support::calledFromC<char*>(__func__, nullptr, [](char*& result) {
    const auto id = Vantamo::getPRWAdvertisingId();
    if (id) result = support::handedOut(*id);
  });
}
bool vantamo_activate_client_id(const char* clientId) {
  return answer(__func__, &Vantamo::activateClientId, clientId);
}
bool vantamo_reset_to_default_client_id() {
  return answer(__func__, &Vantamo::resetToDefaultClientId);
}
bool vantamo_set_opt_out(const char* mode) { return answer(__func__, &Vantamo::setOptOut, mode); }

bool vantamo_fire_page_view(const vantamo_page_view* event) {
  using Struct = vantamo_page_view;
  return fire<tags::pageViewFormat, &Struct::pageId, &Struct::category, &Struct::searchTerm,
              &Struct::searchResult, &Struct::attributes, &Struct::vqmmc>(__func__, event,
                                                                          &Vantamo::firePageView);
}

bool vantamo_fire_product_view(const vantamo_product_view* event) {
  using Struct = vantamo_product_view;
  return fire<tags::productViewFormat, &Struct::pageId, &Struct::productId, &Struct::productName,
              &Struct::category, &Struct::attributes>(__func__, event, &Vantamo::fireProductview);
}

bool vantamo_fire_shop_action5(const vantamo_shop_action5* event) {
  using Struct = vantamo_shop_action5;
  return fire<tags::shopAction5Format, &Struct::productId, &Struct::productName, &Struct::quantity,
              &Struct::baseUnitPrice, &Struct::category, &Struct::currencyCode,
              &Struct::attributes>(__func__, event, &Vantamo::fireShopAction5);
}

bool vantamo_fire_shop_action9(const vantamo_shop_action9* event) {
  using Struct = vantamo_shop_action9;
  return fire<tags::shopAction9Format, &Struct::productId, &Struct::productName, &Struct::quantity,
              &Struct::baseUnitPrice, &Struct::category, &Struct::orderId, &Struct::orderSubTotal,
              &Struct::customerId, &Struct::currencyCode, &Struct::attributes>(
      __func__, event, &Vantamo::fireShopAction9);
}

bool vantamo_fire_order(const vantamo_order* event) {
  using Struct = vantamo_order;
  return fire<tags::orderFormat, &Struct::orderId, &Struct::subtotal, &Struct::shippingCharge,
              &Struct::customerId, &Struct::customerCity, &Struct::customerState,
              &Struct::customerZip, &Struct::currencyCode, &Struct::attributes>(
      __func__, event, &Vantamo::fireOrder);
}

bool vantamo_fire_registration(const vantamo_registration* event) {
  using Struct = vantamo_registration;
  return fire<tags::registrationFormat, &Struct::customerId, &Struct::email, &Struct::customerCity,
              &Struct::customerState, &Struct::customerZip, &Struct::customerCountry,
              &Struct::attributes>(__func__, event, &Vantamo::fireRegistration);
}

bool vantamo_fire_element(const vantamo_element* event) {
  using Struct = vantamo_element;
  return fire<tags::elementFormat, &Struct::elementId, &Struct::elementCategory,
              &Struct::attributes>(__func__, event, &Vantamo::fireElement);
}

bool vantamo_fire_conversion_event(const vantamo_conversion_event* event) {
  using Struct = vantamo_conversion_event;
  return fire<tags::conversionEventFormat, &Struct::eventId, &Struct::actionType,
              &Struct::eventCategory, &Struct::eventPoints, &Struct::attributes>(
      __func__, event, &Vantamo::fireConversionEvent);
}

bool vantamo_fire_link_click(const vantamo_link_click* event) {
  using Struct = vantamo_link_click;
  return fire<tags::linkClickFormat, &Struct::pageId, &Struct::linkName, &Struct::link>(
      __func__, event, &Vantamo::fireLinkClick);
}

bool vantamo_fire_impression(const vantamo_impression* event) {
  using Struct = vantamo_impression;
  return fire<tags::impressionFormat, &Struct::pageId, &Struct::vqsp, &Struct::vqre>(
      __func__, event, &Vantamo::fireImpression);
}

bool vantamo_set_platform_overrides(const vantamo_platform_overrides* overrides) {
  constexpr const char* operation = "vantamo_set_platform_overrides";
  return support::calledFromC(operation, false, [&](bool& result) {
    const auto known = support::knownPart(operation, overrides);
    if (!known) return;
    const auto& [size, idiom, screen, caches, bundle, version, sink] = *known;
    PlatformOverrides taken;
    const auto context = support::ownedContext(sink.context, sink.release);
    if (sink.write != nullptr) {
      taken.logSink = [write = sink.write, context](std::string_view text) {
        write(context.get(), std::string(text).c_str());
      };
    }
    taken.cachesDirectory = support::copied(caches);
    taken.mainBundleFolder = support::copied(bundle);
    taken.systemVersion = support::copied(version);
    if (screen.present) taken.screenSize = {.width = screen.width, .height = screen.height};
    if (!takeIdiom(operation, taken, idiom)) return;
    vantamo::setPlatformOverrides(std::move(taken));
    result = true;
  });
}

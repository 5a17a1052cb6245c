#include "vantamo/vantamo.h"

#include <type_traits>

#include "constraints/vt_constraints_checker.h"
#include "facade/parameters.h"
#include "module/vt_mod.h"
#include "platform/environment.h"
#include "platform/system_log.h"
#include "support/guarded.h"
#include "tags/event_formats.h"
#include "vantamo/version.h"

using vantamo::Text;
using vantamo::support::guarded;
namespace tags = vantamo::tags;

namespace {

// Fires first and checks afterwards: the limits decide the answer, never whether a tag goes out.
template <class Event>
bool fire(const tags::EventFormat<Event>& format, const Event& event,
          std::type_identity_t<bool (VTMod::*)(const Event&)> fireEvent) {
  return guarded(format.facadeOperation, false, [&](bool& result) {
    const bool fired = (VTMod::sharedInstance().*fireEvent)(event);
    const vantamo::facade::Parameters parameters(format, event);
    const bool satisfied = VTConstraintsChecker::satisfy(parameters.arguments(), Text(format.name));
    result = fired && satisfied;
  });
}

}  // namespace

bool Vantamo::startup() {
  constexpr const char* operation = "+[Vantamo startup]";
  if (vantamo::platform::environmentVariable("VANTAMO_DEBUG") == nullptr) {
    vantamo::platform::systemLog(
        "\n\n\n***\n\n VANTAMO_DEBUG is not defined in environmental variables. No Debug logging "
        "will be available\n\n***\n\n\n");
  }
  vantamo::support::debugLog(operation, [] {
    return vantamo::support::withValue("Starting Vantamo SDK Version: %@", libraryVersion());
  });
  return guarded(operation, false, [](bool& result) { result = VTMod::sharedInstance().start(); });
}

bool Vantamo::startNewSession() {
  return guarded("+[Vantamo startNewSession]", false,
                 [](bool& result) { result = VTMod::sharedInstance().newSession(); });
}

bool Vantamo::shutdown() {
  return guarded("+[Vantamo shutdown]", false,
                 [](bool& result) { result = VTMod::sharedInstance().stop(); });
}

std::string Vantamo::sessionId() {
  return guarded("+[Vantamo sessionId]", std::string(),
                 [](std::string& result) { result = VTMod::sharedInstance().sessionId(); });
}

std::string Vantamo::visitorId() {
  return guarded("+[Vantamo visitorId]", std::string(),
                 [](std::string& result) { result = VTMod::sharedInstance().visitorId(); });
}

bool Vantamo::setPRWAdvertisingId(Text advertisingId) {
  const std::optional<std::string> copy = advertisingId.copy();
  return VTMod::sharedInstance().setPRWAdvertisingId(copy);
}

std::optional<std::string> Vantamo::getPRWAdvertisingId() {
  return VTMod::sharedInstance().getPRWAdvertisingId();
}

std::string Vantamo::libraryVersion() {
  return guarded("+[Vantamo libraryVersion]", std::string(),
                 [](std::string& result) { result = VANTAMO_VERSION_STRING; });
}

bool Vantamo::activateClientId(Text clientId) {
  return guarded("+[Vantamo activateClientId:]", false,
                 [&](bool& result) { result = VTMod::setActiveClientId(clientId); });
}

bool Vantamo::resetToDefaultClientId() {
  return guarded("+[Vantamo resetToDefaultClientId]", false,
                 [](bool& result) { result = VTMod::clearActiveClientId(); });
}

bool Vantamo::setOptOut(Text mode) {
  return guarded("+[Vantamo setOptOut:]", false,
                 [&](bool& result) { result = VTMod::sharedInstance().setOptOut(mode); });
}

std::string Vantamo::getOptOut() {
  return guarded("+[Vantamo getOptOut]", std::string(),
                 [](std::string& result) { result = VTMod::sharedInstance().getOptOut(); });
}

bool Vantamo::firePageView(const vantamo::PageView& event) {
  return fire(tags::pageViewFormat, event, &VTMod::firePageView);
}

bool Vantamo::fireProductview(const vantamo::ProductView& event) {
  return fire(tags::productViewFormat, event, &VTMod::fireProductView);
}

bool Vantamo::fireShopAction5(const vantamo::ShopAction5& event) {
  return fire(tags::shopAction5Format, event, &VTMod::fireShopAction5);
}

bool Vantamo::fireShopAction9(const vantamo::ShopAction9& event) {
  return fire(tags::shopAction9Format, event, &VTMod::fireShopAction9);
}

bool Vantamo::fireOrder(const vantamo::Order& event) {
  return fire(tags::orderFormat, event, &VTMod::fireOrder);
}

bool Vantamo::fireRegistration(const vantamo::Registration& event) {
  return fire(tags::registrationFormat, event, &VTMod::fireRegistration);
}

bool Vantamo::fireElement(const vantamo::Element& event) {
  return fire(tags::elementFormat, event, &VTMod::fireElement);
}

bool Vantamo::fireConversionEvent(const vantamo::ConversionEvent& event) {
  return fire(tags::conversionEventFormat, event, &VTMod::fireConversionEvent);
}

bool Vantamo::fireLinkClick(const vantamo::LinkClick& event) {
  return fire(tags::linkClickFormat, event, &VTMod::fireLinkClick);
}

bool Vantamo::fireImpression(const vantamo::Impression& event) {
  return fire(tags::impressionFormat, event, &VTMod::fireImpression);
}

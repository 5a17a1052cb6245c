#include <utility>

#include "module/vt_mod.h"
#include "support/guarded.h"
#include "tags/attributes.h"
#include "tags/event_formats.h"

using vantamo::Text;
using vantamo::support::debugLog;
using vantamo::support::guarded;
namespace tags = vantamo::tags;

namespace {

// A list as the one string it travels as; an empty list counts as absent.
std::optional<std::string> joinedOrAbsent(vantamo::TextList list) {
  return list.size() > 0 ? std::optional(tags::joined(list)) : std::nullopt;
}

}  // namespace

bool VTMod::isRequiredStringParamPassed(Text value, std::string_view paramDescription) {
  constexpr const char* operation = "-[VTMod isRequiredStringParamPassed:paramDescription:]";
  return guarded(operation, false, [&](bool& result) {
    result = !value.absentOrEmpty();
    if (!result) {
      debugLog(operation,
               [&] { return vantamo::support::withValue("%@ is required", paramDescription); });
    }
  });
}

Text VTMod::emptyStringIfNil(Text value) { return value.present() ? value : Text(""); }

// The first one that is missing ends the test: one log line for one call.
template <class Event>
bool VTMod::requiredPassed(const tags::EventFormat<Event>& format, const Event& event) {
  for (int order = 1;; ++order) {
    const auto field = std::ranges::find(format.fields, order, &tags::Field<Event>::requiredOrder);
    if (field == format.fields.end()) return true;
    if (!isRequiredStringParamPassed(event.*field->text, field->required)) return false;
  }
}

template <class Event>
bool VTMod::fire(const tags::EventFormat<Event>& format, const Event& event,
                 std::type_identity_t<bool (VTTagDictionary::*)(const Event&)> makeTag) {
  return guarded(format.moduleOperation, false, [&](bool& result) {
    if (!canFire() || !requiredPassed(format, event)) return;
    Event filled = event;
    for (const tags::Field<Event>& field : format.fields) {
      if (field.text != nullptr && field.filled) {
        filled.*field.text = emptyStringIfNil(event.*field.text);
      }
    }
    auto tag = VTTagDictionary::tagWithApplicationName(applicationName(), clientId());
    result = (tag.*makeTag)(filled) && postTagDictionary(std::move(tag));
  });
}

bool VTMod::firePageView(const vantamo::PageView& event) {
  return guarded(tags::pageViewFormat.moduleOperation, false, [&](bool& result) {
    if (!canFire()) return;
    const auto marketingCode = joinedOrAbsent(event.vqmmc);
    result = firePageView(tags::JoinedPageView{.pageId = event.pageId,
                                               .category = event.category,
                                               .searchTerm = event.searchTerm,
                                               .searchResult = event.searchResult,
                                               .attributes = event.attributes,
                                               .vqmmc = marketingCode});
  });
}

bool VTMod::firePageView(const tags::JoinedPageView& event) {
  return fire(tags::joinedPageViewFormat, event, &VTTagDictionary::makePageViewTag);
}

bool VTMod::fireTechnicalProperties(const tags::JoinedPageView& event) {
  return fire(tags::technicalPropertiesFormat, event, &VTTagDictionary::makeTechnicalPropertiesTag);
}

bool VTMod::fireProductView(const vantamo::ProductView& event) {
  return fire(tags::productViewFormat, event, &VTTagDictionary::makeProductViewTag);
}

bool VTMod::fireShopAction5(const vantamo::ShopAction5& event) {
  return fire(tags::shopAction5Format, event, &VTTagDictionary::makeShopAction5Tag);
}

bool VTMod::fireShopAction9(const vantamo::ShopAction9& event) {
  return fire(tags::shopAction9Format, event, &VTTagDictionary::makeShopAction9Tag);
}

bool VTMod::fireOrder(const vantamo::Order& event) {
  return fire(tags::orderFormat, event, &VTTagDictionary::makeOrderTag);
}

bool VTMod::fireRegistration(const vantamo::Registration& event) {
  return fire(tags::registrationFormat, event, &VTTagDictionary::makeRegistrationTag);
}

bool VTMod::fireElement(const vantamo::Element& event) {
  return fire(tags::elementFormat, event, &VTTagDictionary::makeElementTag);
}

bool VTMod::fireConversionEvent(const vantamo::ConversionEvent& event) {
  return fire(tags::conversionEventFormat, event, &VTTagDictionary::makeConversionEventTag);
}

bool VTMod::fireLinkClick(const vantamo::LinkClick& event) {
  return fire(tags::linkClickFormat, event, &VTTagDictionary::makeLinkClickTag);
}

bool VTMod::fireImpression(const vantamo::Impression& event) {
  return guarded(tags::impressionFormat.moduleOperation, false, [&](bool& result) {
    if (!canFire()) return;
    const auto sitePromotion = joinedOrAbsent(event.vqsp);
    const auto realEstate = joinedOrAbsent(event.vqre);
    result = fireImpression(
        tags::JoinedImpression{.pageId = event.pageId, .vqsp = sitePromotion, .vqre = realEstate});
  });
}

bool VTMod::fireImpression(const tags::JoinedImpression& event) {
  return fire(tags::joinedImpressionFormat, event, &VTTagDictionary::makeImpressionTag);
}

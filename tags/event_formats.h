#pragma once

#include <array>

#include "tags/event_format.h"
#include "tags/joined_events.h"
#include "vantamo/events.h"

/// The tables of all events. A page view and an impression stand here twice: with lists as the host
/// gives them (their parameters dictionary) and joined as they go onto the wire.
namespace vantamo::tags {
namespace rows {

template <class Event>
constexpr Field<Event> text(std::string_view argument, std::string_view key, Text Event::*member,
                            Form form = Form::plain) {
  return {.argument = argument, .key = key, .text = member, .form = form};
}

template <class Event>
constexpr Field<Event> text(std::string_view argument, std::string_view key,
                            TextList Event::*member, Form form) {
  return {.argument = argument, .key = key, .list = member, .form = form};
}

template <class Event>
constexpr Field<Event> attributes(TextList Event::*member) {
  return {.argument = "attributes", .key = "", .list = member, .form = Form::attributes};
}

template <class Event>
constexpr Field<Event> required(Field<Event> field, std::string_view description, int order) {
  field.required = description;
  field.requiredOrder = order;
  return field;
}

template <class Event>
constexpr Field<Event> unchecked(Field<Event> field) {
  field.checked = false;
  return field;
}

template <class Event>
constexpr std::array<Field<Event>, 6> pageView() {
  return {{
      required(text("pageId", "pi", &Event::pageId), "Page Id", 1),
      text("category", "cg", &Event::category),
      text("searchTerm", "se", &Event::searchTerm, Form::paired),
      text("searchResult", "sr", &Event::searchResult, Form::paired),
      attributes(&Event::attributes),
      text("vqmmc", "vq_mmc", &Event::vqmmc, Form::marketing),
  }};
}

// The same arguments, but a page id is neither asked for nor replaced, and what is absent prints.
constexpr std::array<Field<JoinedPageView>, 6> technicalProperties() {
  auto fields = pageView<JoinedPageView>();
  fields[0] = text("pageId", "pi", &JoinedPageView::pageId, Form::printed);
  fields[0].filled = false;
  fields[1].form = Form::printed;
  return fields;
}

template <class Event>
constexpr std::array<Field<Event>, 3> impression() {
  return {{
      required(text("pageId", "pi", &Event::pageId), "Page Id", 1),
      text("vqsp", "vq_sp", &Event::vqsp, Form::optional),
      text("vqre", "vq_re", &Event::vqre, Form::optional),
  }};
}

inline constexpr auto pageViewFields = pageView<PageView>();
inline constexpr auto joinedPageViewFields = pageView<JoinedPageView>();
inline constexpr auto technicalPropertiesFields = technicalProperties();
inline constexpr auto impressionFields = impression<Impression>();
inline constexpr auto joinedImpressionFields = impression<JoinedImpression>();

inline constexpr std::array<Field<ProductView>, 5> productViewFields = {{
    required(text("pageId", "pi", &ProductView::pageId), "Page Id", 1),
    required(text("productId", "pr", &ProductView::productId), "Product Id", 2),
    required(text("productName", "pm", &ProductView::productName), "Product Name", 3),
    text("category", "cg", &ProductView::category),
    attributes(&ProductView::attributes),
}};

inline constexpr std::array<Field<ShopAction5>, 7> shopAction5Fields = {{
    required(text("productId", "pr", &ShopAction5::productId), "Product Id", 1),
    required(text("productName", "pm", &ShopAction5::productName), "Product Name", 2),
    required(text("quantity", "qt", &ShopAction5::quantity), "Quantity", 3),
    required(text("baseUnitPrice", "bp", &ShopAction5::baseUnitPrice), "Base Unit Price", 4),
    text("category", "cg", &ShopAction5::category),
    required(text("currencyCode", "cc", &ShopAction5::currencyCode), "Currency Code", 5),
    attributes(&ShopAction5::attributes),
}};

inline constexpr std::array<Field<ShopAction9>, 10> shopAction9Fields = {{
    required(text("productId", "pr", &ShopAction9::productId), "Product Id", 1),
    required(text("productName", "pm", &ShopAction9::productName), "Product Name", 2),
    required(text("quantity", "qt", &ShopAction9::quantity), "Quantity", 3),
    required(text("baseUnitPrice", "bp", &ShopAction9::baseUnitPrice), "Base Unit Price", 4),
    text("category", "cg", &ShopAction9::category),
    required(text("orderId", "on", &ShopAction9::orderId), "Order Id", 6),
    required(text("orderSubTotal", "tr", &ShopAction9::orderSubTotal), "Order Subtotal", 7),
    required(text("customerId", "cd", &ShopAction9::customerId), "Customer Id", 8),
    required(text("currencyCode", "cc", &ShopAction9::currencyCode), "Currency Code", 5),
    attributes(&ShopAction9::attributes),
}};

inline constexpr std::array<Field<Order>, 9> orderFields = {{
    required(text("orderId", "on", &Order::orderId), "Order Id", 1),
    required(text("subtotal", "tr", &Order::subtotal), "Order Subtotal", 2),
    required(text("shippingCharge", "sg", &Order::shippingCharge), "Order Shipping Charge", 3),
    required(text("customerId", "cd", &Order::customerId), "Customer Id", 4),
    text("customerCity", "ct", &Order::customerCity),
    text("customerState", "sa", &Order::customerState),
    text("customerZip", "zp", &Order::customerZip),
    required(text("currencyCode", "cc", &Order::currencyCode), "Currency Code", 5),
    attributes(&Order::attributes),
}};

inline constexpr std::array<Field<Registration>, 7> registrationFields = {{
    required(text("customerId", "cd", &Registration::customerId), "Customer Id", 1),
    text("email", "em", &Registration::email),
    text("customerCity", "ct", &Registration::customerCity),
    text("customerState", "sa", &Registration::customerState),
    text("customerZip", "zp", &Registration::customerZip),
    unchecked(text("customerCountry", "cy", &Registration::customerCountry, Form::mapOnly)),
    attributes(&Registration::attributes),
}};

inline constexpr std::array<Field<Element>, 3> elementFields = {{
    required(text("elementId", "eid", &Element::elementId), "Element Id", 1),
    text("elementCategory", "ecat", &Element::elementCategory),
    attributes(&Element::attributes),
}};

inline constexpr std::array<Field<ConversionEvent>, 5> conversionEventFields = {{
    required(text("eventId", "cid", &ConversionEvent::eventId), "Event Id", 1),
    required(text("actionType", "cat", &ConversionEvent::actionType), "Action Type", 2),
    unchecked(text("eventCategory", "ccid", &ConversionEvent::eventCategory)),
    text("eventPoints", "cpt", &ConversionEvent::eventPoints),
    attributes(&ConversionEvent::attributes),
}};

inline constexpr std::array<Field<LinkClick>, 3> linkClickFields = {{
    text("pageId", "pi", &LinkClick::pageId),
    text("linkName", "nm", &LinkClick::linkName, Form::optional),
    required(text("link", "hr", &LinkClick::link), "Link", 1),
}};

inline constexpr std::array<FixedValue, 4> screenValues = {{
    {"pc", "Y"},
    {"pd", "24"},
    {"sw", "", Source::screenWidth},
    {"sh", "", Source::screenHeight},
}};
inline constexpr std::array<FixedValue, 1> cartAction = {{{"at", "5"}}};
inline constexpr std::array<FixedValue, 1> purchaseAction = {{{"at", "9"}}};
inline constexpr std::array<FixedValue, 1> pageFlag = {{{"pflg", "0"}}};
inline constexpr std::array<FixedValue, 1> clickTime = {{{"ti", "", Source::sendTime}}};

}  // namespace rows

inline constexpr EventFormat<PageView> pageViewFormat = {
    .name = "firePageView",
    .facadeOperation = "+[Vantamo firePageView:category:searchTerm:searchResult:attributes:vqmmc:]",
    .moduleOperation = "-[VTMod firePageView:category:searchTerm:searchResult:attributes:vqmmc:]",
    .code = 1,
    .fields = rows::pageViewFields};

inline constexpr EventFormat<JoinedPageView> joinedPageViewFormat = {
    .name = "firePageView",
    .facadeOperation = "",
    .moduleOperation = "-[VTMod firePageView:cg:se:sr:attributes:vq_mmc:]",
    .code = 1,
    .fields = rows::joinedPageViewFields};

inline constexpr EventFormat<JoinedPageView> technicalPropertiesFormat = {
    .name = "",
    .facadeOperation = "",
    .moduleOperation = "-[VTMod fireTechnicalProperties:cg:se:sr:attributes:vq_mmc:]",
    .code = 6,
    .fields = rows::technicalPropertiesFields,
    .leading = rows::screenValues};

inline constexpr EventFormat<ProductView> productViewFormat = {
    .name = "fireProductview",
    .facadeOperation = "+[Vantamo fireProductview:productId:productName:category:attributes:]",
    .moduleOperation = "-[VTMod fireProductView:pr:pm:cg:attributes:]",
    .code = 5,
    .fields = rows::productViewFields};

inline constexpr EventFormat<ShopAction5> shopAction5Format = {
    .name = "fireShopAction5",
    .facadeOperation =
        "+[Vantamo fireShopAction5:productName:quantity:baseUnitPrice:category:"
        "currencyCode:attributes:]",
    .moduleOperation = "-[VTMod fireShopAction5:pm:qt:bp:cg:cc:attributes:]",
    .code = 4,
    .fields = rows::shopAction5Fields,
    .leading = rows::cartAction,
    .digest = true};

inline constexpr EventFormat<ShopAction9> shopAction9Format = {
    .name = "fireShopAction9",
    .facadeOperation =
        "+[Vantamo fireShopAction9:productName:quantity:baseUnitPrice:category:"
        "orderId:orderSubTotal:customerId:currencyCode:attributes:]",
    .moduleOperation = "-[VTMod fireShopAction9:pm:qt:bp:cg:on:tr:cd:cc:attributes:]",
    .code = 4,
    .fields = rows::shopAction9Fields,
    .leading = rows::purchaseAction,
    .digest = true};

inline constexpr EventFormat<Order> orderFormat = {
    .name = "fireOrder",
    .facadeOperation =
        "+[Vantamo fireOrder:subtotal:shippingCharge:customerId:customerCity:"
        "customerState:customerZip:currencyCode:attributes:]",
    .moduleOperation = "-[VTMod fireOrder:tr:sg:cd:ct:sa:zp:cc:attributes:]",
    .code = 3,
    .fields = rows::orderFields};

inline constexpr EventFormat<Registration> registrationFormat = {
    .name = "fireRegistration",
    .facadeOperation =
        "+[Vantamo fireRegistration:email:customerCity:customerState:customerZip:"
        "customerCountry:attributes:]",
    .moduleOperation = "-[VTMod fireRegistration:em:ct:sa:zp:cy:attributes:]",
    .code = 2,
    .fields = rows::registrationFields};

inline constexpr EventFormat<Element> elementFormat = {
    .name = "fireElement",
    .facadeOperation = "+[Vantamo fireElement:elementCategory:attributes:]",
    .moduleOperation = "-[VTMod fireElement:ecat:attributes:]",
    .code = 15,
    .fields = rows::elementFields,
    .trailing = rows::pageFlag};

inline constexpr EventFormat<ConversionEvent> conversionEventFormat = {
    .name = "fireConversionEvent",
    .facadeOperation =
        "+[Vantamo fireConversionEvent:actionType:eventCategory:eventPoints:attributes:]",
    .moduleOperation = "-[VTMod fireConversionEvent:cat:ccid:cpt:attributes:]",
    .code = 14,
    .fields = rows::conversionEventFields};

inline constexpr EventFormat<LinkClick> linkClickFormat = {
    .name = "fireLinkClick",
    .facadeOperation = "+[Vantamo fireLinkClick:linkName:link:]",
    .moduleOperation = "-[VTMod fireLinkClick:nm:hr:]",
    .code = 8,
    .fields = rows::linkClickFields,
    .leading = rows::clickTime};

inline constexpr EventFormat<Impression> impressionFormat = {
    .name = "fireImpression",
    .facadeOperation = "+[Vantamo fireImpression:vqsp:vqre:]",
    .moduleOperation = "-[VTMod fireImpression:vqsp:vqre:]",
    .code = 9,
    .fields = rows::impressionFields};

inline constexpr EventFormat<JoinedImpression> joinedImpressionFormat = {
    .name = "fireImpression",
    .facadeOperation = "",
    .moduleOperation = "-[VTMod fireImpression:sp:re:]",
    .code = 9,
    .fields = rows::joinedImpressionFields};

/// Calls `visitor` with the format of each of the ten facade events.
template <class Visitor>
constexpr void forEachEvent(Visitor&& visitor) {
  visitor(pageViewFormat);
  visitor(productViewFormat);
  visitor(shopAction5Format);
  visitor(shopAction9Format);
  visitor(orderFormat);
  visitor(registrationFormat);
  visitor(elementFormat);
  visitor(conversionEventFormat);
  visitor(linkClickFormat);
  visitor(impressionFormat);
}

}  // namespace vantamo::tags

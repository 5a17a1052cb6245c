#pragma once

#include "vantamo/text.h"

/// @file
/// One aggregate per event. Members that are left out are absent; braces also work by position:
///
///     Vantamo::fireOrder({.orderId = "o-1", .subtotal = "19.90", .shippingCharge = "4.90",
///                         .customerId = "c-7", .currencyCode = "EUR"});
///
/// All values are strings, sent as they stand; what each may hold at most is told in
/// docs/wire-format.md. "Required" means present and not empty: the event is refused without it.
/// Attributes are numbered on the wire from 1; at most 50 of them are sent.
///
/// The members are views for one call (see Text): build the aggregate in the call itself. Each has
/// an initializer, so that compilers do not warn of those that are left out.
namespace vantamo {

/// A page or screen was shown. The first one of a session reports the device as well.
struct PageView {
  Text pageId{};          ///< Required. The name of the page.
  Text category{};        ///< What the page belongs to.
  Text searchTerm{};      ///< What was searched for, on a page of search results.
  Text searchResult{};    ///< The number of results found, as text; belongs to searchTerm.
  TextList attributes{};  ///< What else the app wants to tell.
  TextList vqmmc{};       ///< The elements of the marketing code, sent joined with "-_-".
};

/// A product's details were shown.
struct ProductView {
  Text pageId{};          ///< Required.
  Text productId{};       ///< Required.
  Text productName{};     ///< Required.
  Text category{};        ///< What the product belongs to.
  TextList attributes{};  ///< What else the app wants to tell.
};

/// A product was put into the cart: one event for each line of the cart.
struct ShopAction5 {
  Text productId{};       ///< Required.
  Text productName{};     ///< Required.
  Text quantity{};        ///< Required. How many, as text.
  Text baseUnitPrice{};   ///< Required. The price of one, in currencyCode, as text.
  Text category{};        ///< What the product belongs to.
  Text currencyCode{};    ///< Required.
  TextList attributes{};  ///< What else the app wants to tell.
};

/// A product was bought: one event for each line of a purchase, and one Order for the whole.
struct ShopAction9 {
  Text productId{};       ///< Required.
  Text productName{};     ///< Required.
  Text quantity{};        ///< Required. How many, as text.
  Text baseUnitPrice{};   ///< Required. The price of one, in currencyCode, as text.
  Text category{};        ///< What the product belongs to.
  Text orderId{};         ///< Required. The order that the line is part of.
  Text orderSubTotal{};   ///< Required. The whole order without shipping, in currencyCode, as text.
  Text customerId{};      ///< Required.
  Text currencyCode{};    ///< Required.
  TextList attributes{};  ///< What else the app wants to tell.
};

/// An order was placed.
struct Order {
  Text orderId{};         ///< Required.
  Text subtotal{};        ///< Required. Without shipping, in currencyCode, as text.
  Text shippingCharge{};  ///< Required. In currencyCode, as text.
  Text customerId{};      ///< Required.
  Text customerCity{};    ///< Where the customer lives.
  Text customerState{};   ///< The state, province or region.
  Text customerZip{};     ///< The postal code.
  Text currencyCode{};    ///< Required.
  TextList attributes{};  ///< What else the app wants to tell.
};

/// A customer registered or changed their data.
struct Registration {
  Text customerId{};       ///< Required.
  Text email{};            ///< Sent as it stands: personal data.
  Text customerCity{};     ///< Where the customer lives.
  Text customerState{};    ///< The state, province or region.
  Text customerZip{};      ///< The postal code.
  Text customerCountry{};  ///< The country; no limit is checked.
  TextList attributes{};   ///< What else the app wants to tell.
};

/// An element of a page was used: a menu, a video, a size chart.
struct Element {
  Text elementId{};        ///< Required.
  Text elementCategory{};  ///< What the element belongs to.
  TextList attributes{};   ///< What else the app wants to tell.
};

/// A step of something that the host wants its users to do.
struct ConversionEvent {
  Text eventId{};         ///< Required. What is to be done.
  Text actionType{};      ///< Required. "1" when begun, "2" when completed.
  Text eventCategory{};   ///< What the event belongs to.
  Text eventPoints{};     ///< What it is worth to the host, as text.
  TextList attributes{};  ///< What else the app wants to tell.
};

/// A link was followed.
struct LinkClick {
  Text pageId{};    ///< Where the link stands.
  Text linkName{};  ///< What it is called.
  Text link{};      ///< Required. Where it leads.
};

/// Something was seen on a page.
struct Impression {
  Text pageId{};    ///< Required.
  TextList vqsp{};  ///< The elements of the site promotion, sent joined with "-_-".
  TextList vqre{};  ///< The elements of the real estate, sent joined with "-_-".
};

}  // namespace vantamo

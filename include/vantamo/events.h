#pragma once

#include "vantamo/text.h"

/// One aggregate per event. Members that are left out are absent; braces also work by position:
///
///   Vantamo::fireOrder({.orderId = "o-1", .subtotal = "19.90", .shippingCharge = "4.90",
///                       .customerId = "c-7", .currencyCode = "EUR"});
///
/// All values are strings, sent as they stand; what each may hold at most is told in
/// docs/wire-format.md. "Required" means present and not empty: the event is refused without it.
/// Attributes are numbered on the wire from 1; at most 50 of them are sent.
///
/// The members are views for one call (see Text): build the aggregate in the call itself.
namespace vantamo {

/// A page or screen was shown. Required: pageId. `searchTerm` and `searchResult` (the number of
/// results) belong together. `vqmmc` is the marketing code, its elements joined with "-_-".
struct PageView {
  Text pageId;
  Text category;
  Text searchTerm;
  Text searchResult;
  TextList attributes;
  TextList vqmmc;
};

/// A product's details were shown. Required: pageId, productId, productName.
struct ProductView {
  Text pageId;
  Text productId;
  Text productName;
  Text category;
  TextList attributes;
};

/// A product was put into the cart. Required: all but category and attributes.
struct ShopAction5 {
  Text productId;
  Text productName;
  Text quantity;
  Text baseUnitPrice;
  Text category;
  Text currencyCode;
  TextList attributes;
};

/// A line of a purchase. Required: all but category and attributes.
struct ShopAction9 {
  Text productId;
  Text productName;
  Text quantity;
  Text baseUnitPrice;
  Text category;
  Text orderId;
  Text orderSubTotal;
  Text customerId;
  Text currencyCode;
  TextList attributes;
};

/// An order was placed. Required: orderId, subtotal, shippingCharge, customerId, currencyCode.
struct Order {
  Text orderId;
  Text subtotal;
  Text shippingCharge;
  Text customerId;
  Text customerCity;
  Text customerState;
  Text customerZip;
  Text currencyCode;
  TextList attributes;
};

/// A customer registered or changed their data. Required: customerId.
struct Registration {
  Text customerId;
  Text email;
  Text customerCity;
  Text customerState;
  Text customerZip;
  Text customerCountry;
  TextList attributes;
};

/// An element of a page was used. Required: elementId.
struct Element {
  Text elementId;
  Text elementCategory;
  TextList attributes;
};

/// A step of a conversion. Required: eventId and actionType ("1" begun, "2" completed).
struct ConversionEvent {
  Text eventId;
  Text actionType;
  Text eventCategory;
  Text eventPoints;
  TextList attributes;
};

/// A link was followed. Required: link.
struct LinkClick {
  Text pageId;
  Text linkName;
  Text link;
};

/// Something was seen on a page. Required: pageId. `vqsp` is the site promotion, `vqre` the real
/// estate; the elements of each are joined with "-_-".
struct Impression {
  Text pageId;
  TextList vqsp;
  TextList vqre;
};

}  // namespace vantamo

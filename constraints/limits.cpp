#include <array>

#include "constraints/vt_constraints_checker.h"

namespace vantamo::constraints {
namespace {

constexpr auto limits = std::to_array<Limit>({
    {"firePageView", "pageId", true, 256},
    {"firePageView", "category", false, 256},
    {"firePageView", "searchTerm", false, 256},
    {"firePageView", "searchResult", false, 10},
    {"firePageView", "attributes", false, 256, 50},
    {"firePageView", "vqmmc", false, 100, 15},

    {"fireProductview", "pageId", true, 256},
    {"fireProductview", "productId", true, 256},
    {"fireProductview", "productName", true, 256},
    {"fireProductview", "category", false, 256},
    {"fireProductview", "attributes", false, 256, 50},

    {"fireShopAction5", "productId", true, 256},
    {"fireShopAction5", "productName", true, 256},
    {"fireShopAction5", "quantity", true, 8},
    {"fireShopAction5", "baseUnitPrice", true, 19},
    {"fireShopAction5", "category", false, 256},
    {"fireShopAction5", "currencyCode", true, 10},
    {"fireShopAction5", "attributes", false, 256, 50},

    {"fireShopAction9", "productId", true, 256},
    {"fireShopAction9", "productName", true, 256},
    {"fireShopAction9", "quantity", true, 8},
    {"fireShopAction9", "baseUnitPrice", true, 19},
    {"fireShopAction9", "category", false, 256},
    {"fireShopAction9", "orderId", true, 64},
    {"fireShopAction9", "orderSubTotal", true, 19},
    {"fireShopAction9", "customerId", true, 256},
    {"fireShopAction9", "currencyCode", true, 10},
    {"fireShopAction9", "attributes", false, 256, 50},

    {"fireOrder", "orderId", true, 64},
    {"fireOrder", "subtotal", true, 19},
    {"fireOrder", "shippingCharge", true, 19},
    {"fireOrder", "customerId", true, 256},
    {"fireOrder", "customerCity", false, 256},
    {"fireOrder", "customerState", false, 256},
    {"fireOrder", "customerZip", false, 256},
    {"fireOrder", "currencyCode", true, 10},
    {"fireOrder", "attributes", false, 256, 50},

    {"fireRegistration", "customerId", true, 256},
    {"fireRegistration", "email", false, 256},
    {"fireRegistration", "customerCity", false, 256},
    {"fireRegistration", "customerState", false, 256},
    {"fireRegistration", "customerZip", false, 256},
    {"fireRegistration", "attributes", false, 256, 50},

    {"fireElement", "elementId", true, 50},
    {"fireElement", "elementCategory", false, 50},
    {"fireElement", "attributes", false, 256, 50},

    {"fireConversionEvent", "eventId", true, 256},
    {"fireConversionEvent", "actionType", false, 1},
    {"fireConversionEvent", "eventCategory", true, 256},
    {"fireConversionEvent", "eventPoints", false, 16},
    {"fireConversionEvent", "attributes", false, 256, 50},

    {"fireLinkClick", "pageId", false, 256},
    {"fireLinkClick", "linkName", false, 256},
    {"fireLinkClick", "link", true, 256},

    {"fireImpression", "pageId", true, 256},
    {"fireImpression", "vqsp", false, 256},
    {"fireImpression", "vqre", false, 256},
});

}  // namespace

std::span<const Limit> builtInLimits() { return limits; }

}  // namespace vantamo::constraints

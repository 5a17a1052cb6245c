// A host application in one page: starts the library, reports one event of each kind, stops.
//
//   example_host [BUNDLE]
//
// BUNDLE is the folder that holds VTMod.bundle/settings.json with at least "PostMessageUrl"; by
// default it is the folder of the executable.

#include <vantamo/default_core.h>
#include <vantamo/platform.h>
#include <vantamo/vantamo.h>

#include <chrono>
#include <cstdio>

namespace {

// Prints each call as it stands in this file, and the library's answer.
void report(const char* call, bool answer) {
  std::printf("%s\t%s\n", answer ? "true" : "false", call);
}

}  // namespace

#define FIRE(...) report(#__VA_ARGS__, Vantamo::__VA_ARGS__)

int main(int argc, char** argv) {
  vantamo::PlatformOverrides platform;
  if (argc > 1) platform.mainBundleFolder = argv[1];
  platform.screenSize = vantamo::ScreenSize{.width = 390, .height = 844};
  vantamo::setPlatformOverrides(platform);

  if (!Vantamo::startup()) {
    std::fputs("the library did not start; set VANTAMO_DEBUG=1 to see why\n", stderr);
    return 1;
  }

  // The first page view of a session also reports the device.
  FIRE(firePageView({.pageId = "home", .category = "start"}));
  FIRE(firePageView({.pageId = "results",
                     .category = "search",
                     .searchTerm = "shoe",
                     .searchResult = "12",
                     .attributes = {"spring", "web"},
                     .vqmmc = {"mail", "week 12", "banner"}}));
  FIRE(fireProductview(
      {.pageId = "product", .productId = "sku-1", .productName = "Shoe", .category = "shoes"}));
  FIRE(fireElement({.elementId = "size-chart", .elementCategory = "help"}));
  FIRE(fireShopAction5({.productId = "sku-1",
                        .productName = "Shoe",
                        .quantity = "2",
                        .baseUnitPrice = "19.90",
                        .category = "shoes",
                        .currencyCode = "EUR",
                        .attributes = {"red", "42"}}));
  FIRE(fireRegistration({.customerId = "c-7",
                         .email = "ada@example.org",
                         .customerCity = "London",
                         .customerCountry = "GB"}));
  FIRE(fireShopAction9({.productId = "sku-1",
                        .productName = "Shoe",
                        .quantity = "2",
                        .baseUnitPrice = "19.90",
                        .orderId = "o-1",
                        .orderSubTotal = "39.80",
                        .customerId = "c-7",
                        .currencyCode = "EUR"}));
  FIRE(fireOrder({.orderId = "o-1",
                  .subtotal = "39.80",
                  .shippingCharge = "4.90",
                  .customerId = "c-7",
                  .currencyCode = "EUR"}));
  FIRE(fireConversionEvent({.eventId = "newsletter", .actionType = "2", .eventPoints = "10"}));
  FIRE(fireLinkClick({.pageId = "home", .linkName = "imprint", .link = "/imprint"}));
  FIRE(fireImpression({.pageId = "home", .vqsp = {"spring", "hero"}, .vqre = {"top"}}));

  // Tags are safe once accepted and go out by themselves; a program that is about to end may wait a
  // little so that they go out with this run and not the next.
  const bool delivered = vantamo::default_core::flush(std::chrono::seconds(5));
  Vantamo::shutdown();
  return delivered ? 0 : 3;
}

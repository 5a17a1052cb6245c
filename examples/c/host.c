// A host application in C: starts the library, reports one event of each kind, tells the figures,
// stops. For each call it prints a line: the answer, a tab, the call.
//
//   example_c_host [BUNDLE]
//
// BUNDLE is the folder that holds VTMod.bundle/settings.json; by default it is the folder of the
// executable.

#include <inttypes.h>
#include <stdio.h>
#include <vantamo/vantamo_c.h>

static void report(const char* call, bool answer) {
  printf("%s\t%s\n", answer ? "true" : "false", call);
}

#define FIRE(event, ...)              \
  report(#event "(" #__VA_ARGS__ ")", \
         vantamo_fire_##event(VANTAMO_WITH(vantamo_##event, __VA_ARGS__)))

// One with a struct of its own, one with a struct in the call.
static void fireFirst(void) {
  vantamo_page_view home = VANTAMO_INIT(vantamo_page_view);  // everything is absent
  home.pageId = "home";
  home.category = "start";
  report("page_view(home)", vantamo_fire_page_view(&home));
  report("element(menu)",
         vantamo_fire_element(VANTAMO_WITH(vantamo_element, .elementId = "menu",
                                           .attributes = VANTAMO_LIST("top", "wide"))));
}

static void fireOthers(void) {
  const char* const words[] = {"spring", "web"};
  FIRE(page_view, .pageId = "results", .category = "search", .searchTerm = "shoe",
       .searchResult = "12", .attributes = {words, 2},
       .vqmmc = VANTAMO_LIST("mail", "week 12", "banner"));
  FIRE(product_view, .pageId = "product", .productId = "sku-1", .productName = "Shoe",
       .category = "shoes");
  FIRE(element, .elementId = "size-chart", .elementCategory = "help");
  FIRE(shop_action5, .productId = "sku-1", .productName = "Shoe", .quantity = "2",
       .baseUnitPrice = "19.90", .category = "shoes", .currencyCode = "EUR",
       .attributes = VANTAMO_LIST("red", "42"));
  FIRE(registration, .customerId = "c-7", .email = "ada@example.org", .customerCity = "London",
       .customerCountry = "GB");
  FIRE(shop_action9, .productId = "sku-1", .productName = "Shoe", .quantity = "2",
       .baseUnitPrice = "19.90", .orderId = "o-1", .orderSubTotal = "39.80", .customerId = "c-7",
       .currencyCode = "EUR");
  FIRE(order, .orderId = "o-1", .subtotal = "39.80", .shippingCharge = "4.90", .customerId = "c-7",
       .currencyCode = "EUR");
  FIRE(conversion_event, .eventId = "newsletter", .actionType = "2", .eventPoints = "10");
  FIRE(link_click, .pageId = "home", .linkName = "imprint", .link = "/imprint");
  FIRE(impression, .pageId = "home", .vqsp = VANTAMO_LIST("spring", "hero"),
       .vqre = VANTAMO_LIST("top"));
}

// Called on the core's thread after every attempt.
static void onDelivery(void* context, const vantamo_delivery_report* attempt) {
  (void)context;
  if (attempt->outcome != VANTAMO_OUTCOME_DELIVERED) {
    fprintf(stderr, "%s is not delivered: %s\n", attempt->id, attempt->reason);
  }
}

static void tellFigures(void) {
  vantamo_default_core_stats stats = VANTAMO_INIT(vantamo_default_core_stats);
  if (!vantamo_default_core_get_stats(&stats)) return;
  fprintf(stderr, "accepted %" PRIu64 ", delivered %" PRIu64 ", last error: %s\n", stats.accepted,
          stats.delivered, stats.lastError ? stats.lastError : "none");
  vantamo_free(stats.lastError);
}

int main(int argc, char** argv) {
  vantamo_platform_overrides platform = VANTAMO_INIT(vantamo_platform_overrides);
  if (argc > 1) platform.mainBundleFolder = argv[1];
  platform.screenSize = (vantamo_screen_size){.present = true, .width = 390, .height = 844};
  vantamo_set_platform_overrides(&platform);

  vantamo_default_core_options options = VANTAMO_INIT(vantamo_default_core_options);
  options.maxQueuedMessages = (vantamo_optional_count){.present = true, .count = 500};
  vantamo_default_core_set_options(&options);  // before the first startup
  vantamo_default_core_set_delivery_callback(onDelivery, NULL, NULL);

  if (!vantamo_startup()) {
    fputs("the library did not start; set VANTAMO_DEBUG=1 to see why\n", stderr);
    return 1;
  }
  fireFirst();
  fireOthers();
  const bool delivered = vantamo_default_core_flush(5000);
  tellFigures();
  vantamo_shutdown();
  return delivered ? 0 : 3;
}

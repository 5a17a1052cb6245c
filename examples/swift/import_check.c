// Imports the module as Swift's importer does and names what a Swift host would.
#pragma clang module import CVantamo

static void write(void* context, const char* text) {
  (void)context;
  (void)text;
}

bool host(void) {
  vantamo_platform_overrides platform = {.size = sizeof platform, .logSink = {.write = write}};
  vantamo_page_view home = {.size = sizeof home, .pageId = "home"};
  return vantamo_set_platform_overrides(&platform) && vantamo_startup() &&
         vantamo_fire_page_view(&home) && vantamo_default_core_flush(2000) && vantamo_shutdown();
}

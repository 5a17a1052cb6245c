// A host in C. Without settings nothing is sent.

#include <string.h>
#include <vantamo/vantamo_c.h>
#include <vantamo/version.h>

int main(void) {
  vantamo_platform_overrides platform = VANTAMO_INIT(vantamo_platform_overrides);
  platform.cachesDirectory = "host-data";
  vantamo_default_core_stats stats = VANTAMO_INIT(vantamo_default_core_stats);
  char* version = vantamo_library_version();
  const bool isKnown = version != NULL && strcmp(version, VANTAMO_VERSION_STRING) == 0;
  vantamo_free(version);
  return isKnown && vantamo_set_platform_overrides(&platform) && vantamo_startup() &&
                 !vantamo_fire_element(VANTAMO_WITH(vantamo_element, .elementId = "menu")) &&
                 vantamo_default_core_get_stats(&stats) && vantamo_shutdown()
             ? 0
             : 1;
}

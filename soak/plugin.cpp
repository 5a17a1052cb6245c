// A plug-in with a copy of the library in it, for a host that loads and unloads it.

#include "vantamo/platform.h"
#include "vantamo/vantamo.h"

extern "C" bool runOnce(const char* bundle, const char* id) {
  vantamo::PlatformOverrides overrides;
  overrides.mainBundleFolder = bundle;
  vantamo::setPlatformOverrides(overrides);
  if (!Vantamo::startup()) return false;
  const bool accepted = Vantamo::fireElement({.elementId = id});
  return Vantamo::shutdown() && accepted;
}

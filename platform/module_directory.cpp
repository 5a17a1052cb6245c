#include "vantamo/module_directory.h"

#include <map>
#include <string>

#include "platform/mutex.h"
#include "platform/process_singleton.h"

namespace vantamo {
namespace {

struct Directory {
  platform::Mutex mutex;
  std::map<std::string, ModuleInstance, std::less<>> classes VANTAMO_GUARDED_BY(mutex);
};

Directory& directory() {
  static constinit platform::ProcessSingleton<Directory> instance;
  return instance.get();
}

}  // namespace

void registerModuleClass(std::string_view moduleName, ModuleInstance sharedInstance) {
  const platform::MutexLock lock(directory().mutex);
  directory().classes.insert_or_assign(std::string(moduleName), sharedInstance);
}

ModuleInstance moduleClass(std::string_view moduleName) {
  const platform::MutexLock lock(directory().mutex);
  const auto entry = directory().classes.find(moduleName);
  return entry == directory().classes.end() ? nullptr : entry->second;
}

}  // namespace vantamo

// A settings file gives the items that it holds, or a problem that names it.

#include "support/settings_file.h"
#include "fuzz/fuzz.h"
#include "support/json.h"

void vantamo::fuzz::check(std::string_view input) {
  writeFile(scratchFolder() / "settings.json", input);
  const support::SettingsFile file = support::readSettingsFile(scratchFolder().string());
  const nlohmann::json json = plainJson(input);
  if (json.is_object()) {
    require(!file.problem, "an object is no problem");
    require(nlohmann::json::parse(support::writeJson(file.items)) == json, "all items are taken");
  } else {
    const std::string name = (scratchFolder() / "settings.json").string() + ": ";
    require(file.items.empty(), "a problem leaves no items");
    require(file.problem && file.problem->starts_with(name) && file.problem->size() > name.size(),
            "a problem names the file");
  }
}

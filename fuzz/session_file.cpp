// A session starts on any file and leaves a good one; only JSON that is no object stays.

#include <algorithm>

#include "fuzz/fuzz.h"
#include "state/vt_mod_session.h"

void vantamo::fuzz::check(std::string_view input) {
  const std::filesystem::path file = scratchFolder() / "VTSessions" / "VTSessions.json";
  std::filesystem::create_directories(file.parent_path());
  writeFile(file, input);
  const VTModSession session;
  const std::string left = readFile(file);
  const nlohmann::json before = plainJson(input);
  if (!before.is_discarded() && !before.is_object()) {
    require(left == input && !session.cjuid(), "other JSON ends the start");
    return;
  }
  const nlohmann::json after = plainJson(left);
  require(after.is_object() && after.size() == 2, "the file is an object of two");
  const std::string visitor = after.at("cjuid");
  const std::string id = after.at("cjsid");
  require(session.cjuid() == visitor && session.cjsid() == id, "the file holds the ids");
  require(id.size() == 10 && std::ranges::all_of(id, [](char c) { return c >= '0' && c <= '9'; }),
          "a session id has ten digits");
  const bool known = before.is_object() && before.contains("cjuid") &&
                     before["cjuid"].is_string() && before["cjuid"] != "";
  require(known ? before["cjuid"] == visitor : visitor.size() == 23, "a known visitor stays");
}

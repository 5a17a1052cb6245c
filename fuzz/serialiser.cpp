// Any bytes as keys and values become valid JSON that holds the same characters.

#include <map>

#include "fuzz/fuzz.h"
#include "support/json.h"
#include "support/json_object.h"

void vantamo::fuzz::check(std::string_view input) {
  // A line each: a key, its value, the next key.
  Value::Map map;
  std::map<std::u32string, std::u32string> expected;
  while (!input.empty()) {
    std::string_view pair[2];
    for (std::string_view& text : pair) {
      const std::size_t end = std::min(input.find('\n'), input.size());
      text = input.substr(0, end);
      input.remove_prefix(std::min(end + 1, input.size()));
    }
    map.erase(pair[0]);  // so that the last of equal keys is the last in order
    map.set(pair[0], Value::List{pair[1]});
  }
  for (const auto& [key, value] : map) {
    expected[charactersOf(key)] = charactersOf(value.list().at(0).string());
  }
  std::map<std::u32string, std::u32string> written;
  const nlohmann::json json = nlohmann::json::parse(support::writeJson(map));
  for (const auto& [key, value] : json.items()) {
    require(value.size() == 1, "a list keeps its size");
    written[charactersOf(key)] = charactersOf(value.at(0).get<std::string>());
  }
  require(written == expected, "the characters are the same");
  // The writer of tags, whose keys differ as bytes but may be the same characters.
  support::JsonObject object;
  std::map<std::u32string, std::u32string> flat;
  for (const auto& [key, value] : map) {
    const std::string& text = value.list().at(0).string();
    if (!flat.emplace(charactersOf(key), charactersOf(text)).second) continue;
    object.add(key, text);
  }
  std::map<std::u32string, std::u32string> flatWritten;
  const nlohmann::json flatJson = nlohmann::json::parse(object.text());
  for (const auto& [key, value] : flatJson.items()) {
    flatWritten[charactersOf(key)] = charactersOf(value.get<std::string>());
  }
  require(flatWritten == flat, "a tag's characters are the same");
}

// What the builder composes is taken apart again; and of any string only whole pieces are taken.

#include "fuzz/fuzz.h"
#include "tags/vt_message.h"
#include "tags/vt_tag.h"

void vantamo::fuzz::check(std::string_view input) {
  const std::string pieces = "&" + std::string(input) + "&";
  for (const auto& [key, value] : tags::dictionaryWithQueryString(input)) {
    require(!key.empty() && key.find('=') == std::string::npos, "a key ends at the first =");
    require(pieces.find("&" + key + "=" + value.string() + "&") != std::string::npos,
            "an entry is one piece");
  }
  std::vector<std::string> values(1);  // one a line, without the separators
  for (const char character : input) {
    if (character == '\n') values.emplace_back();
    if (std::string_view("\n&=").find(character) == std::string::npos) values.back() += character;
  }
  VTTag tag = VTTag::tagWith("App", "123");
  tag.start();
  for (std::size_t i = 0; i < values.size(); ++i) tag.add("k" + std::to_string(i), values[i]);
  tag.finish();
  const Value::Map map = tags::dictionaryWithQueryString(tag.tag());
  for (std::size_t i = 0; i < values.size(); ++i) {
    const auto value = map.stringAt("k" + std::to_string(i));
    require(value && charactersOf(*value) == charactersOf(values[i]), "a value comes back");
  }
  constexpr std::size_t envelopeKeys = 10;
  require(map.size() == values.size() + envelopeKeys, "nothing else comes back");
}

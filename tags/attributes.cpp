#include "tags/attributes.h"

#include "platform/sha1.h"
#include "support/utf.h"

namespace vantamo::tags {

std::string joined(TextList list) {
  std::string text;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (i > 0) text += listSeparator;
    text += list[i];
  }
  return text;
}

std::vector<std::string> split(Text text) {
  std::vector<std::string> pieces;
  if (text.absentOrEmpty()) return pieces;
  std::string_view rest = text.view();
  for (std::size_t at = rest.find(listSeparator); at != std::string_view::npos;
       at = rest.find(listSeparator)) {
    pieces.emplace_back(rest.substr(0, at));
    rest.remove_prefix(at + listSeparator.size());
  }
  pieces.emplace_back(rest);
  return pieces;
}

std::string digestOf(Text text) { return platform::sha1Hex(support::wellFormedUtf8(text.view())); }

}  // namespace vantamo::tags

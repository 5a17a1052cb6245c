#include "support/utf.h"

#include <utf8.h>

#include <iterator>

namespace vantamo::support {

std::string wellFormedUtf8(std::string_view text) {
  if (utf8::is_valid(text.begin(), text.end())) return std::string(text);
  std::string repaired;
  repaired.reserve(text.size());
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(repaired));
  return repaired;
}

std::size_t utf16Length(std::string_view text) {
  if (!utf8::is_valid(text.begin(), text.end())) return utf16Length(wellFormedUtf8(text));
  std::size_t units = 0;
  for (const char byte : text) {
    const auto bits = static_cast<unsigned char>(byte);
    const bool continues = (bits & 0xC0U) == 0x80U;
    const bool leadsPair = bits >= 0xF0U;
    units += continues ? 0U : (leadsPair ? 2U : 1U);
  }
  return units;
}

}  // namespace vantamo::support

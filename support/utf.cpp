#include "support/utf.h"

#include <utf8.h>

#include <cstdint>
#include <cstring>
#include <iterator>

namespace vantamo::support {
namespace {

// Most texts are ASCII, which is told faster than what is well-formed beyond it.
bool isAscii(std::string_view text) {
  constexpr std::uint64_t highBits = 0x8080808080808080U;
  std::uint64_t seen = 0;
  for (; text.size() >= sizeof seen; text.remove_prefix(sizeof seen)) {
    std::uint64_t eight = 0;
    std::memcpy(&eight, text.data(), sizeof eight);
    seen |= eight;
  }
  for (const char byte : text) seen |= static_cast<unsigned char>(byte);
  return (seen & highBits) == 0;
}

bool isWellFormed(std::string_view text) {
  return isAscii(text) || utf8::is_valid(text.begin(), text.end());
}

}  // namespace

std::string_view wellFormedView(std::string_view text, std::string& repaired) {
  if (isWellFormed(text)) return text;
  repaired.clear();
  repaired.reserve(text.size());
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(repaired));
  return repaired;
}

std::string wellFormedUtf8(std::string_view text) {
  std::string repaired;
  return std::string(wellFormedView(text, repaired));
}

std::size_t utf16Length(std::string_view text) {
  if (isAscii(text)) return text.size();
  std::string repaired;
  std::size_t units = 0;
  for (const char byte : wellFormedView(text, repaired)) {
    const auto bits = static_cast<unsigned char>(byte);
    const bool continues = (bits & 0xC0U) == 0x80U;
    const bool leadsPair = bits >= 0xF0U;
    units += continues ? 0U : (leadsPair ? 2U : 1U);
  }
  return units;
}

}  // namespace vantamo::support

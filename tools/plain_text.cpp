#include "tools/plain_text.h"

#include <array>
#include <ctime>

#include "support/utf.h"

namespace vantamo::tools {
namespace {

void appendEscaped(std::string& text, unsigned char byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  text.append("\\x").append(1, digits[byte >> 4U]).append(1, digits[byte & 0xFU]);
}

}  // namespace

std::string printable(std::string_view text) {
  // U+0080 to U+009F are control characters to many a terminal: this byte, and one below 0xA0.
  constexpr unsigned char leadOfControls = 0xC2;
  const std::string sound = support::wellFormedUtf8(text);
  std::string shown;
  for (std::size_t i = 0; i < sound.size(); ++i) {
    const auto byte = static_cast<unsigned char>(sound[i]);
    if (byte < 0x20 || byte == 0x7F) {
      appendEscaped(shown, byte);
    } else if (byte == leadOfControls && static_cast<unsigned char>(sound[i + 1]) < 0xA0) {
      appendEscaped(shown, static_cast<unsigned char>(sound[++i]));
    } else {
      shown += sound[i];
    }
  }
  return shown;
}

std::string isoTime(std::int64_t milliseconds) {
  constexpr std::int64_t perSecond = 1000;
  const std::int64_t fraction = (milliseconds % perSecond + perSecond) % perSecond;
  const std::int64_t seconds = milliseconds / perSecond - (milliseconds % perSecond < 0 ? 1 : 0);
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  std::array<char, 64> text{};
  if (time != seconds || ::gmtime_r(&time, &parts) == nullptr ||
      std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts) == 0) {
    return std::to_string(milliseconds);
  }
  return std::string(text.data()) + "." + std::to_string(perSecond + fraction).substr(1) + "Z";
}

}  // namespace vantamo::tools

#include "platform/sha1.h"

#include <sha1.h>

#include <array>
#include <cstdint>

namespace vantamo::platform {

std::string sha1Hex(std::string_view bytes) {
  std::array<char, SHA1_DIGEST_STRING_LENGTH> hex{};
  SHA1Data(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), hex.data());
  return hex.data();
}

}  // namespace vantamo::platform

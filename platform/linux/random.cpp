#include "platform/random.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace vantamo::platform {

std::uint32_t random32() noexcept { return arc4random(); }

std::string randomUuid() {
  std::array<std::uint32_t, 4> words{};
  arc4random_buf(words.data(), sizeof words);
  constexpr std::uint32_t version4 = 0x4000U;
  constexpr std::uint32_t variant1 = 0x80000000U;
  words[1] = (words[1] & 0xFFFF0FFFU) | version4;
  words[2] = (words[2] & 0x3FFFFFFFU) | variant1;
  std::array<char, 37> text{};
  std::snprintf(text.data(), text.size(), "%08x-%04x-%04x-%04x-%04x%08x", words[0], words[1] >> 16U,
                words[1] & 0xFFFFU, words[2] >> 16U, words[2] & 0xFFFFU, words[3]);
  return text.data();
}

}  // namespace vantamo::platform

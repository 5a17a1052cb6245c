// Whatever the kernel answers: nothing is read beyond it, nor depends on what stands there.

#include <algorithm>

#include "cores/default/network_routes.h"
#include "fuzz/fuzz.h"

void vantamo::fuzz::check(std::string_view input) {
  const auto read = [input](std::size_t room, std::byte filler) {
    std::vector<std::byte> buffer(room, filler);
    std::ranges::copy(std::as_bytes(std::span(input)), buffer.begin());
    std::vector<unsigned> interfaces;
    const auto progress =
        core::forEachRouteInterface(std::span(buffer).first(input.size()), 1,
                                    [&](unsigned index) { interfaces.push_back(index); });
    return std::pair(progress, interfaces);
  };
  const auto exact = read(input.size(), std::byte{0});
  for (const std::byte filler : {std::byte{0}, std::byte{4}, std::byte{0xFF}}) {
    require(read(input.size() + 64, filler) == exact, "what follows makes no difference");
  }
}

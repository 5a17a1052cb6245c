#include "state/session_ids.h"

namespace vantamo::state {

// The moduli are wider than a 32-bit draw and so never reduce it; they are part of the format as it
// was laid down for wider draws.
std::string visitorIdFrom(std::uint32_t first, std::uint32_t second) {
  const std::uint64_t head = first % 999999999999ULL + 100000000000ULL;
  const std::uint64_t tail = second % 99999999999ULL + 10000000000ULL;
  return std::to_string(head) + std::to_string(tail);
}

std::string sessionIdFrom(std::uint32_t draw) {
  return std::to_string(draw % 9999999999ULL + 1000000000ULL);
}

}  // namespace vantamo::state

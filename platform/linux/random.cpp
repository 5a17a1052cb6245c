#include "platform/random.h"

#include <cstdlib>
#include <cstring>

#include "platform/mutex.h"
#include "platform/process_singleton.h"

namespace vantamo::platform {
namespace {

constexpr std::size_t uuidBytes = 16;

// Random bytes in advance.
class RandomPool {
 public:
  std::array<std::uint8_t, uuidBytes> take() {
    const MutexLock lock(mutex_);
    if (used_ == pool_.size()) {
      arc4random_buf(pool_.data(), pool_.size());
      used_ = 0;
    }
    std::array<std::uint8_t, uuidBytes> bytes{};
    std::memcpy(bytes.data(), pool_.data() + used_, bytes.size());
    std::memset(pool_.data() + used_, 0, bytes.size());
    used_ += bytes.size();
    return bytes;
  }

 private:
  Mutex mutex_;
  std::array<std::uint8_t, 64 * uuidBytes> pool_ VANTAMO_GUARDED_BY(mutex_){};
  std::size_t used_ VANTAMO_GUARDED_BY(mutex_) = pool_.size();
};

}  // namespace

std::uint32_t random32() noexcept { return arc4random(); }

Uuid::Uuid() {
  static constinit ProcessSingleton<RandomPool> pool;
  auto bytes = pool.get().take();
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U);  // variant 1
  constexpr std::string_view digits = "0123456789abcdef";
  char* out = text_.data();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) *out++ = '-';
    *out++ = digits[bytes[i] >> 4U];
    *out++ = digits[bytes[i] & 0xFU];
  }
}

}  // namespace vantamo::platform

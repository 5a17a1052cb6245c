#include "cores/default/queue_slot.h"

#include <sys/file.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace vantamo::core {
namespace {

constexpr int mostSlots = 64;

// Descriptors of the locks held now, plus one; 0 for none. A forked child shares them, and with
// them the ownership.
constinit std::array<std::atomic<int>, mostSlots> heldLocks{};

void exchangeHeld(int from, int to) noexcept {
  for (auto& held : heldLocks) {
    int expected = from;
    if (held.compare_exchange_strong(expected, to)) return;
  }
}

}  // namespace

QueueSlot::QueueSlot(platform::PrivateFolder folder, std::string name, platform::UniqueFd lock)
    : folder_(std::move(folder)), name_(std::move(name)), lock_(std::move(lock)) {
  exchangeHeld(0, lock_.get() + 1);
}

QueueSlot::QueueSlot(QueueSlot&& other) noexcept = default;

QueueSlot::~QueueSlot() {
  if (lock_) exchangeHeld(lock_.get() + 1, 0);
}

void QueueSlot::abandonAll() noexcept {
  for (auto& held : heldLocks) {
    if (const int fd = held.exchange(0) - 1; fd >= 0) ::close(fd);
  }
}

std::optional<QueueSlot> QueueSlot::tryAcquire(const platform::PrivateFolder& application,
                                               const std::string& name) {
  platform::PrivateFolder folder = application.child(name);
  platform::UniqueFd lock = folder.open(lockName).fd;
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return {};
    throw std::system_error(errno, std::generic_category(), folder.pathOf(lockName));
  }
  // Its last owner may have erased the folder just before.
  if (!platform::hasName(lock) || !folder.isInPlace()) return {};
  return QueueSlot(std::move(folder), name, std::move(lock));
}

QueueSlot QueueSlot::acquire(const platform::PrivateFolder& application) {
  for (int number = 0; number < mostSlots; ++number) {
    // Twice, should an owner have erased it just before.
    for (int attempt = 0; attempt < 2; ++attempt) {
      if (auto slot = tryAcquire(application, std::to_string(number))) return std::move(*slot);
    }
  }
  throw std::runtime_error(application.path() + ": all queue folders are in use");
}

bool QueueSlot::isName(const std::string& name) {
  return name.size() <= 2 && name.find_first_not_of("0123456789") == std::string::npos;
}

std::vector<std::string> QueueSlot::namesIn(const platform::PrivateFolder& application) {
  std::vector<std::string> names = application.names();
  std::erase_if(names, [](const std::string& name) { return !isName(name); });
  return names;
}

bool QueueSlot::erase() const {
  bool all = true;
  for (const std::string& name : folder_.names()) {
    if (name != lockName) all = folder_.remove(name) && all;
  }
  return all;
}

bool QueueSlot::isInPlace() const noexcept {
  return folder_.isInPlace() && platform::hasName(lock_);
}

}  // namespace vantamo::core
